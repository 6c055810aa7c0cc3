#include "check/meant_options.h"

#include "check/substitution.h"
#include "starter/open_service_config.h"

#include <list>
#include <set>

std::vector<Meant_Option> meant_options(int argc, char** argv)
{
  std::vector<Meant_Option> options;
  std::set<std::string> files; // of all directories so far
  Service_Config_Get_Opt opt(argc, argv, true);
  for (int c; (c = opt()) != -1;) {
    if (c == 0 || c == 1 || c == '?')
      continue;
    const char letter = static_cast<char>(c);
    const char* const value = opt.opt_arg();
    if (letter == 'f' && find_service_configs(value, files))
      for (const std::string& path : files)
        options.push_back({letter, path, true, true, true});
    else
      options.push_back({letter, value ? value : "", value != nullptr, false, !value || is_safe_to_substitute(value)});
  }
  return options;
}

Configurator_Option expected_option(const Meant_Option& option)
{
  return {option.letter, option.is_found ? option.value : substitute_variable(option.value)};
}

std::vector<std::string> framework_words(const std::vector<Meant_Option>& options, std::size_t count)
{
  std::list<std::string> texts; // the framework does not copy what it is given
  Service_Config_Argv args(false);
  args.append("starter");
  for (std::size_t i = 0; i < count; ++i) {
    const Meant_Option& option = options[i];
    texts.push_back(std::string("-") + option.letter);
    const char* const letter = texts.back().c_str();
    if (option.has_value && !option.is_found) {
      add_option(args, letter, option.value.c_str());
      continue;
    }
    args.append(letter);
    if (option.is_found) {
      texts.push_back(quote_path(option.value));
      args.append(texts.back().c_str());
    }
  }

  char** const argv = args.whole_argv();
  return argv ? std::vector<std::string>(argv, argv + args.argc()) : std::vector<std::string>();
}
