#include "check/command_line_findings.h"

#include "check/checker_options.h"
#include "check/command_line_reader.h"
#include "scrt/make_reactor.h"
#include "scrt/natoi.h"
#include "starter/configuration.h"
#include "starter/identity.h"
#include "starter/options.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace
{
void add(Findings& findings, Finding_Kind kind, const std::string& message)
{
  findings.push_back({kind, {}, message});
}

std::string quoted(const std::string& text)
{
  return '\'' + text + '\'';
}

bool is_used(Role role)
{
  return role == Role::OPTION || role == Role::VALUE || role == Role::END;
}

std::string ignored(const std::string& argument, Role own, Role configurator)
{
  if (own == Role::BEHIND || configurator == Role::BEHIND)
    return quoted(argument) + " is ignored: it stands behind '--'";
  if (is_checker_option(argument))
    return quoted(argument) + " is no option of the host; as one of the checker's own it stands before all others";
  if (argument.size() > 1 && argument[0] == '-')
    return quoted(argument) + " is ignored: no such option, or more than one of that beginning";
  const std::string stray = quoted(argument) + " is ignored: it is no option and belongs to none";
  std::error_code no_file;
  const bool is_configuration = std::filesystem::is_directory(argument, no_file) ||
                                (is_file_extension(argument.c_str(), "conf") && is_regular_file(argument.c_str()));
  return is_configuration ? stray + "; '-f " + argument + "' loads services from it" : stray;
}

// A word that one reading uses and the other one ignores is in order: each reader passes over what is for the other.
void check_arguments(int argc, char** argv, const Reading& own, const Reading& configurator, Findings& findings)
{
  for (std::size_t i = 1; i < static_cast<std::size_t>(argc); ++i) {
    const Role in_own = own.roles[i];
    const Role in_configurator = configurator.roles[i];
    const bool is_ignored = !is_used(in_own) && !is_used(in_configurator);
    if (is_used(in_own) && is_used(in_configurator) && in_own != in_configurator)
      add(findings, Finding_Kind::READ_TWICE,
          quoted(argv[i]) + " is read twice: as the value of what stands before it, and for itself");
    else if (is_ignored && i + 1 == static_cast<std::size_t>(argc) && lacks_value(argc, argv))
      add(findings, Finding_Kind::MISSING_VALUE, quoted(argv[i]) + " is ignored: its value is missing");
    else if (is_ignored)
      add(findings, Finding_Kind::IGNORED_ARGUMENT, ignored(argv[i], in_own, in_configurator));
    else if (in_configurator == Role::OPTION && !is_used(in_own) && !configurator.unread[i].empty())
      add(findings, Finding_Kind::IGNORED_ARGUMENT,
          "in " + quoted(argv[i]) + " these letters are ignored: " + quoted(configurator.unread[i]));
  }
}

bool is_given_later(const Reading& reading, const Occurrence& option)
{
  return std::any_of(reading.options.begin(), reading.options.end(), [&](const Occurrence& other) {
    return other.name == option.name && &other > &option; // they stand in the order of the line
  });
}

void check_own_occurrences(char** argv, const Reading& own, Findings& findings)
{
  for (const Occurrence& option : own.options) {
    if (option.name != "group" && is_given_later(own, option))
      add(findings, Finding_Kind::IGNORED_ARGUMENT,
          quoted(argv[option.at]) + " is ignored: --" + option.name + " is given again later");
    if (option.name == "background" && std::strchr(argv[option.at], '='))
      add(findings, Finding_Kind::IGNORED_ARGUMENT,
          quoted(argv[option.at]) + " goes to the background whatever follows the equals sign");
  }
}

void check_thread_pool(char** argv, const Reading& own, const Reading& configurator, Findings& findings)
{
  // An abbreviation that fits --threads too is taken for --threads by the host.
  for (const Occurrence& option : configurator.options)
    if (option.name == "thread-pool" && own.roles[option.at] != Role::OPTION)
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

// The host's own look-up. Its records go nowhere: the checker has silenced the framework.
bool is_known_user(const char* text)
{
  unsigned uid;
  return std::unique_ptr<char[]>(get_uid(text, uid, nullptr)) != nullptr;
}

bool is_known_group(const char* text)
{
  unsigned gid;
  return std::unique_ptr<char[]>(get_gid(text, gid)) != nullptr;
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
} // namespace

void check_command_line(int argc, char** argv, Findings& findings)
{
  const Reading own = read_own_options(argc, argv);
  const Reading configurator = read_configurator_options(argc, argv);
  const Starter_Options options = parse_options(argc, argv);

  check_arguments(argc, argv, own, configurator, findings);
  check_own_occurrences(argv, own, findings);
  check_thread_pool(argv, own, configurator, findings);
  check_reactor(options, findings);
  check_threads(own, options, findings);
  check_accounts(options, findings);
}
