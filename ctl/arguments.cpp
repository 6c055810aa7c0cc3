#include "ctl/arguments.h"

#include "ctl/sockets.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <vector>

static constexpr unsigned MAX_TIMEOUT_SEC = 86400;

// The words of the line by their meaning.
struct Words
{
  std::vector<std::string> positional; // the command and its argument
  std::string timeout;
  std::string pid;
  std::string problem; // the first one
};

struct Option
{
  const char* name;
  bool Arguments::*flag;         // what the option sets
  std::string Arguments::*value; // or what its value goes to
  std::string Words::*number;    // or that
};

static constexpr Option OPTIONS[] = {
    {"-c", nullptr, &Arguments::component, nullptr},      {"-s", nullptr, &Arguments::socket, nullptr},
    {"--json", &Arguments::is_json, nullptr, nullptr},    {"--timeout", nullptr, nullptr, &Words::timeout},
    {"--force", &Arguments::is_forced, nullptr, nullptr}, {"--or-signal", nullptr, nullptr, &Words::pid},
    {"--help", &Arguments::is_help, nullptr, nullptr},    {"--version", &Arguments::is_version, nullptr, nullptr},
};

static const Option* find_option(const std::string& name)
{
  for (const Option& option : OPTIONS)
    if (name == option.name)
      return &option;
  return nullptr;
}

static void complain(Words& words, const std::string& problem)
{
  if (words.problem.empty())
    words.problem = problem;
}

// Takes the option `argument` with its value, which stands behind an equals sign or in the next argument. Returns the
// number of arguments that it has taken.
static int take_option(const std::string& argument, const char* next, Arguments& arguments, Words& words)
{
  const std::size_t equals = argument.compare(0, 2, "--") == 0 ? argument.find('=') : std::string::npos;
  const std::string name = argument.substr(0, equals);
  const Option* const option = find_option(name);
  if (!option) {
    complain(words, "there is no option " + name + "; see --help");
    return 1;
  }
  if (option->flag) {
    arguments.*option->flag = true;
    if (equals != std::string::npos)
      complain(words, "the option " + name + " takes no value");
    return 1;
  }

  const std::string value = equals != std::string::npos ? argument.substr(equals + 1) : next ? next : "";
  if (value.empty())
    complain(words, "the option " + name + " needs a value");
  (option->value ? arguments.*option->value : words.*option->number) = value;
  return equals != std::string::npos ? 1 : 2;
}

static Words sort_words(int argc, char** argv, Arguments& arguments)
{
  Words words;
  bool has_options = true; // until "--"
  for (int i = 1; i < argc;) {
    const std::string argument = argv[i];
    if (has_options && argument == "--") {
      has_options = false;
      ++i;
    } else if (has_options && argument.size() > 1 && argument[0] == '-') {
      i += take_option(argument, i + 1 < argc ? argv[i + 1] : nullptr, arguments, words);
    } else {
      words.positional.push_back(argument);
      ++i;
    }
  }
  return words;
}

// The number that `text` consists of, or 0 for anything but a number from 1 to `max`.
static long number_of(const std::string& text, long max)
{
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
    return 0;
  errno = 0;
  const long number = std::strtol(text.c_str(), nullptr, 10);
  return errno == 0 && number <= max ? number : 0;
}

static std::string check_command(const Words& words, Arguments& arguments)
{
  if (words.positional.empty())
    return "a command is missing; see --help";
  const std::string& name = words.positional[0];
  if (!arguments.command)
    return "there is no command '" + name + "'; see --help";

  const Command& command = *arguments.command;
  const std::size_t expected = command.argument ? 2 : 1;
  if (words.positional.size() > expected)
    return "the command " + name + (command.argument ? " takes one argument: " : " takes no argument") +
           (command.argument ? command.argument : "");
  if (words.positional.size() < expected)
    return "the command " + name + " needs an argument: " + command.argument;
  if (!command.argument)
    return "";
  arguments.word = words.positional[1];
  return check_argument(command, arguments.word);
}

static std::string check_options(const Words& words, Arguments& arguments)
{
  if (!arguments.component.empty() && !arguments.socket.empty())
    return "-c and -s exclude each other";
  if (!arguments.component.empty() && !is_component_name(arguments.component))
    return "'" + arguments.component + "' is no name of a component";
  arguments.timeout_sec = static_cast<unsigned>(number_of(words.timeout, MAX_TIMEOUT_SEC));
  if (!words.timeout.empty() && arguments.timeout_sec == 0)
    return "--timeout takes seconds from 1 to " + std::to_string(MAX_TIMEOUT_SEC);
  arguments.signalled_pid = static_cast<pid_t>(number_of(words.pid, INT_MAX));
  if (!words.pid.empty() && arguments.signalled_pid < 2)
    return "--or-signal takes the id of a process";

  const bool is_reload = arguments.command && arguments.command->name == std::string(RELOAD_COMMAND);
  if (!is_reload && (arguments.is_forced || arguments.signalled_pid != 0))
    return "--force and --or-signal belong to the command reload";
  return "";
}

std::string read_arguments(int argc, char** argv, Arguments& arguments)
{
  const Words words = sort_words(argc, argv, arguments);
  if (!words.positional.empty())
    arguments.command = find_command(words.positional[0]);
  if (!words.problem.empty())
    return words.problem;
  if (arguments.is_help || arguments.is_version)
    return argc == 2 ? "" : "--help and --version stand alone";

  const std::string problem = check_command(words, arguments);
  return problem.empty() ? check_options(words, arguments) : problem;
}
