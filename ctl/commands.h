#ifndef CTL_COMMANDS_H
#define CTL_COMMANDS_H

#include "ctl/answer.h"

#include <string>
#include <vector>

/// A command of the operator.
struct Command
{
  const char* name;
  const char* argument; ///< the name of its argument in the usage, or null if it takes none
  const char* member;   ///< of the request, which gets the argument
  unsigned timeout_sec; ///< unless the command line gives another one

  /// Makes the text for people of an answer to the argument `word`. The reader tells of members that are not as they
  /// have to be.
  std::string (*format)(const Json& answer, const std::string& word, Reader& reader);
};

// The commands that are more than a question and its answer.
constexpr char LIST_COMMAND[] = "list"; ///< answered without a process
constexpr char HEALTH_COMMAND[] = "health";
constexpr char RELOAD_COMMAND[] = "reload";

/// All commands, in the order of the manual page.
const std::vector<Command>& commands();

/// The command of this name, or null.
const Command* find_command(const std::string& name);

/// Returns one sentence about why the command does not take `word` as its argument, or an empty one.
std::string check_argument(const Command& command, const std::string& word);

/// The request as one line without a newline. Bytes of `word` that are no UTF-8 are replaced.
std::string make_request(const Command& command, const std::string& word);

#endif // CTL_COMMANDS_H
