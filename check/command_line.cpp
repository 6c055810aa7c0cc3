#include "check/command_line.h"

#include "check/account_probe.h"
#include "check/substitution.h"
#include "scrt/make_reactor.h"
#include "scrt/natoi.h"
#include "starter/open_service_config.h"
#include "starter/options.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace
{
// What one of the two parsers takes an argument for.
enum Role { WORD, UNKNOWN, OPTION, VALUE, END, BEHIND };

struct Occurrence
{
  std::string name;  // a letter or a long name
  std::size_t at;    // its position
  const char* value; // points into the command line; null if there is none
};

struct Reading
{
  std::vector<Role> roles;         // by position
  std::vector<std::string> unread; // by position: letters in it that mean nothing
  std::vector<Occurrence> options; // in order
};

void add(Findings& findings, Finding_Kind kind, const std::string& message)
{
  findings.push_back({kind, {}, message});
}

std::string quoted(const std::string& text)
{
  return '\'' + text + '\'';
}

// Let the parser run over the line and note what it does.
template <typename Parser>
Reading read_line(Parser& opt, int argc, char** argv)
{
  Reading reading;
  reading.roles.assign(static_cast<std::size_t>(argc), BEHIND);
  reading.unread.resize(static_cast<std::size_t>(argc));
  if (argc > 0)
    reading.roles[0] = VALUE; // the name of the program

  for (;;) {
    const int at = opt.opt_ind();
    const int c = opt();
    if (at >= argc || at < 0)
      return reading;
    const std::size_t i = static_cast<std::size_t>(at);
    const bool is_long = std::strncmp(argv[i], "--", 2) == 0;

    if (c == -1) {
      reading.roles[i] = END;
      return reading;
    }
    if (c == 1)
      reading.roles[i] = WORD;
    else if (c == '?') {
      if (reading.roles[i] == BEHIND)
        reading.roles[i] = UNKNOWN; // unless another letter of it is known
      if (!is_long)
        reading.unread[i] += opt.last_option();
    } else {
      reading.roles[i] = OPTION;
      if (opt.opt_ind() > at + 1)
        reading.roles[i + 1] = VALUE;
      reading.options.push_back({c == 0 ? opt.long_option() : std::string(1, static_cast<char>(c)), i, opt.opt_arg()});
    }
  }
}

Reading read_own(int argc, char** argv)
{
  Starter_Get_Opt opt(argc, argv);
  return read_line(opt, argc, argv);
}

Reading read_configurator(int argc, char** argv)
{
  Service_Config_Get_Opt opt(argc, argv, true);
  return read_line(opt, argc, argv);
}

// Whether the last argument is an option that only lacks its value: given one, it would be known.
bool lacks_value(int argc, char** argv)
{
  std::vector<char*> longer(argv, argv + argc);
  char value[] = "value";
  longer.push_back(value);
  longer.push_back(nullptr);

  const std::size_t added = static_cast<std::size_t>(argc);
  return read_own(argc + 1, longer.data()).roles[added] == VALUE ||
         read_configurator(argc + 1, longer.data()).roles[added] == VALUE;
}

bool is_used(Role role)
{
  return role == OPTION || role == VALUE || role == END;
}

std::string ignored(const std::string& argument, Role own, Role configurator)
{
  if (own == BEHIND || configurator == BEHIND)
    return quoted(argument) + " is ignored: it stands behind '--'";
  if (argument == "--json" || argument == "--help" || argument == "--version")
    return quoted(argument) + " is no option of the host; as one of the checker's own it stands before all others";
  if (argument.size() > 1 && argument[0] == '-')
    return quoted(argument) + " is ignored: no such option, or more than one of that beginning";
  return quoted(argument) + " is ignored: it is no option and belongs to none";
}

void check_arguments(int argc, char** argv, const Reading& own, const Reading& configurator, Findings& findings)
{
  for (std::size_t i = 1; i < static_cast<std::size_t>(argc); ++i) {
    const Role l = own.roles[i];
    const Role r = configurator.roles[i];
    if (is_used(l) && is_used(r) && l != r)
      add(findings, Finding_Kind::READ_TWICE,
          quoted(argv[i]) + " is read twice: as the value of what stands before it, and for itself");
    else if (i + 1 == static_cast<std::size_t>(argc) && !is_used(l) && !is_used(r) && lacks_value(argc, argv))
      add(findings, Finding_Kind::MISSING_VALUE, quoted(argv[i]) + " is ignored: its value is missing");
    else if (!is_used(l) && !is_used(r))
      add(findings, Finding_Kind::IGNORED_ARGUMENT, ignored(argv[i], l, r));
    else if (r == OPTION && !is_used(l) && !configurator.unread[i].empty())
      add(findings, Finding_Kind::IGNORED_ARGUMENT,
          "in " + quoted(argv[i]) + " these letters are ignored: " + quoted(configurator.unread[i]));
  }
}

// Options that are known, and yet without effect.
void check_occurrences(char** argv, const Reading& own, const Reading& configurator, Findings& findings)
{
  for (auto i = own.options.begin(); i != own.options.end(); ++i) {
    const bool is_replaced = i->name != "group" && std::any_of(i + 1, own.options.end(), [&](const Occurrence& later) {
                               return later.name == i->name;
                             });
    if (is_replaced)
      add(findings, Finding_Kind::IGNORED_ARGUMENT,
          quoted(argv[i->at]) + " is ignored: --" + i->name + " is given again later");
    if (i->name == "background" && std::strchr(argv[i->at], '='))
      add(findings, Finding_Kind::IGNORED_ARGUMENT,
          quoted(argv[i->at]) + " goes to the background whatever follows the equals sign");
  }

  // Of these the configurator keeps the last one.
  for (auto i = configurator.options.begin(); i != configurator.options.end(); ++i) {
    const bool is_replaced =
        (i->name == "k" || i->name == "p") &&
        std::any_of(i + 1, configurator.options.end(), [&](const Occurrence& later) { return later.name == i->name; });
    if (is_replaced)
      add(findings, Finding_Kind::IGNORED_ARGUMENT,
          '-' + i->name + ' ' + quoted(i->value) + " is ignored: it is given again later");
  }

  // The host takes a beginning that fits --threads as well for that one.
  for (const Occurrence& option : configurator.options)
    if (option.name == "thread-pool" && own.roles[option.at] != OPTION)
      add(findings, Finding_Kind::IGNORED_ARGUMENT, quoted(argv[option.at]) + " is ignored together with its value");
}

// ---- Values of the program's own options

std::string last_value(const Reading& reading, const char* name)
{
  std::string value;
  for (const Occurrence& option : reading.options)
    if (option.name == name && option.value)
      value = option.value;
  return value;
}

void check_threads(const Reading& own, const Starter_Options& options, Findings& findings)
{
  const bool is_given = std::any_of(own.options.begin(), own.options.end(),
                                    [](const Occurrence& option) { return option.name == "threads"; });
  if (!is_given)
    return;

  const std::string text = last_value(own, "threads");
  const char* end = nullptr;
  (void)natoi<unsigned, const char*>(text.c_str(), nullptr, &end);
  const int error = errno;
  if (error == EINVAL)
    add(findings, Finding_Kind::THREAD_COUNT, quoted(text) + " is no number and counts as 0");
  else if (error == ERANGE)
    add(findings, Finding_Kind::THREAD_COUNT,
        quoted(text) + " is too large and counts as " + std::to_string(options.n));
  else if (*end)
    add(findings, Finding_Kind::THREAD_COUNT, quoted(text) + " is cut to " + std::to_string(options.n));

  if (!options.type || !*options.type)
    add(findings, Finding_Kind::THREAD_COUNT, "--threads is ignored without --reactor");
}

void check_reactor(const Starter_Options& options, Findings& findings)
{
  if (!options.type)
    return;
  if (!*options.type) {
    add(findings, Finding_Kind::IGNORED_ARGUMENT, "--reactor is ignored: its value is empty");
    return;
  }

  const bool is_known = get_key_value_entry(make_reactor_table, options.type)->key != nullptr;
  if (!is_known)
    add(findings, Finding_Kind::UNKNOWN_REACTOR,
        quoted(options.type) + " is no reactor: select, tp, dev_poll and priority are");
  else if (!get_reactor_factory(options.type, options.n))
    add(findings, Finding_Kind::THREAD_COUNT,
        quoted(options.type) + " is refused with " + std::to_string(options.n) + " threads: it takes 2 or more");
}

void check_accounts(const Starter_Options& options, Findings& findings)
{
  if (options.opt_user && !is_known_user(options.opt_user))
    add(findings, Finding_Kind::UNKNOWN_USER, "there is no user " + quoted(options.opt_user));
  if (options.opt_group && !is_known_group(options.opt_group))
    add(findings, Finding_Kind::UNKNOWN_GROUP, "there is no group " + quoted(options.opt_group));
  for (const char* const group : options.opt_groups)
    if (!is_known_group(group))
      add(findings, Finding_Kind::UNKNOWN_GROUP, "there is no group " + quoted(group));
}

// ---- Values that go to the configurator

void check_passed_values(const Reading& configurator, Findings& findings)
{
  for (const Occurrence& option : configurator.options) {
    if (!option.value || option.name.size() != 1)
      continue;

    const std::string what = '-' + option.name + ' ' + quoted(option.value) + ": ";
    if (const std::string problem = check_quoting(option.value); !problem.empty())
      add(findings, Finding_Kind::ALTERED_VALUE, what + problem);
    // What the directive of -S leaves for its service to be replaced is looked at with the parameters.
    if (option.name != "S" || !is_safe_to_substitute(option.value))
      for (const std::string& problem : check_variables(option.value))
        add(findings, Finding_Kind::VARIABLE_NOT_SET, what + problem);
  }
}
} // namespace

void check_command_line(int argc, char** argv, Findings& findings)
{
  const Reading own = read_own(argc, argv);
  const Reading configurator = read_configurator(argc, argv);
  const Starter_Options options = parse_options(argc, argv);

  check_arguments(argc, argv, own, configurator, findings);
  check_occurrences(argv, own, configurator, findings);
  check_reactor(options, findings);
  check_threads(own, options, findings);
  check_accounts(options, findings);
  check_passed_values(configurator, findings);
}
