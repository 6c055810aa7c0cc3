#ifndef STARTER_OPTIONS_H
#define STARTER_OPTIONS_H

#include <ace/Get_Opt.h>

#include <vector>

/// The program's own options. The texts point into the command line.
struct Starter_Options
{
  const char* type = nullptr;
  unsigned n = 0;
  bool background = false;
  const char* opt_user = nullptr;
  const char* opt_group = nullptr;
  std::vector<const char*> opt_groups;
};

/// The parser of the program's own options, which follow the program's name. It yields 0 for each of them, 1 for a word
/// that is no option, and '?' for an option that it does not know or that lacks its value. Prints nothing.
class Starter_Get_Opt : public ACE_Get_Opt
{
public:
  Starter_Get_Opt(int argc, char** argv);
};

/// Read the program's own options; everything else on the command line is passed over silently. If an option is given
/// twice, the later one counts; only groups add up. `argv` stays as it is.
Starter_Options parse_options(int argc, char** argv);

#endif // STARTER_OPTIONS_H
