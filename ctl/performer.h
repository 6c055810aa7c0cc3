#ifndef CTL_PERFORMER_H
#define CTL_PERFORMER_H

#include "ctl/arguments.h"
#include "ctl/outcome.h"

#include <string>

/// Carry out the command. Components are looked for in `runtime_dir`. Writes nothing. One thread.
Outcome perform(const Arguments& arguments, const std::string& runtime_dir);

/// The end of a command whose process could not be asked because of `problem`, one sentence.
Outcome not_asked(const Arguments& arguments, const std::string& problem);

#endif // CTL_PERFORMER_H
