#include "trace/trace_options.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace
{
struct Flag
{
  const char* name;
  bool Trace_Options::*value;
};

struct Value
{
  const char* name;
  std::string Trace_Options::*value; // null for a list of directories
  bool is_of_journal;
};
} // namespace

static constexpr Flag FLAGS[] = {
    {"--all", &Trace_Options::all}, {"--json", &Trace_Options::json}, {"--journal", &Trace_Options::journal}};
static constexpr Value VALUES[] = {{"--debug-dir", nullptr, false},
                                   {"--since", &Trace_Options::since, true},
                                   {"--unit", &Trace_Options::unit, true},
                                   {"-u", &Trace_Options::unit, true}};

// The library that looks for debug information parts its directories at colons.
static std::string add_debug_dir(const std::string& dir, Trace_Options& options)
{
  std::error_code error;
  const std::string path = std::filesystem::absolute(dir, error);
  if (error || path.find(':') != std::string::npos)
    return "the path of --debug-dir must not have a colon";
  options.debug_dirs.push_back(path);
  return "";
}

static std::string set_value(const Value& option, const std::string& value, Trace_Options& options)
{
  if (value.empty())
    return std::string(option.name) + " needs a value";
  if (!option.value)
    return add_debug_dir(value, options);

  options.*option.value = value;
  options.journal = options.journal || option.is_of_journal;
  return "";
}

static std::string check(const Trace_Options& options, bool has_file)
{
  if (options.journal && has_file)
    return "the journal is read, or a file, but not both";
  if (options.all && options.json)
    return "--all and --json exclude each other";
  return "";
}

std::string read_trace_options(int argc, const char* const* argv, Trace_Options& options)
{
  bool has_file = false;
  bool takes_options = true;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const std::size_t equals = argument.find('=');
    const std::string name = argument.substr(0, argument.substr(0, 2) == "--" ? equals : std::string::npos);
    const auto flag =
        std::find_if(std::begin(FLAGS), std::end(FLAGS), [&](const Flag& f) { return f.name == argument; });
    const auto value =
        std::find_if(std::begin(VALUES), std::end(VALUES), [&](const Value& v) { return v.name == name; });

    std::string error;
    if (!takes_options || argument == "-" || argument[0] != '-') {
      if (has_file)
        return "only one file can be read";
      options.file = argument;
      has_file = true;
    } else if (argument == "--")
      takes_options = false;
    else if (flag != std::end(FLAGS))
      options.*flag->value = true;
    else if (value == std::end(VALUES))
      return "there is no option " + argument;
    else if (name.size() != argument.size())
      error = set_value(*value, argument.substr(equals + 1), options);
    else
      error = set_value(*value, ++i < argc ? argv[i] : "", options);
    if (!error.empty())
      return error;
  }

  if (!has_file)
    options.file = "-";
  return check(options, has_file);
}
