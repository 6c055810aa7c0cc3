#include "check/command_line_reader.h"

#include "starter/open_service_config.h"
#include "starter/options.h"

#include <cstring>

// Note the letter or the name that the parser has not known in the argument at `at`.
static void note_unknown(Reading& reading, std::size_t at, const char* argument, const char* letter)
{
  if (reading.roles[at] == Role::BEHIND)
    reading.roles[at] = Role::UNKNOWN; // unless another letter of the argument is known
  if (std::strncmp(argument, "--", 2) != 0)
    reading.unread[at] += letter;
}

// Let the parser run over the line and note what it does.
template <typename Parser>
static Reading read_line(Parser& opt, int argc, char** argv)
{
  Reading reading;
  reading.roles.assign(static_cast<std::size_t>(argc), Role::BEHIND);
  reading.unread.resize(static_cast<std::size_t>(argc));
  if (argc > 0)
    reading.roles[0] = Role::VALUE; // the name of the program

  for (;;) {
    const int at = opt.opt_ind();
    const int c = opt();
    if (at >= argc || at < 0)
      return reading;

    const std::size_t i = static_cast<std::size_t>(at);
    if (c == -1) {
      reading.roles[i] = Role::END;
      return reading;
    }
    if (c == 1)
      reading.roles[i] = Role::WORD;
    else if (c == '?')
      note_unknown(reading, i, argv[i], opt.last_option());
    else {
      reading.roles[i] = Role::OPTION;
      if (opt.opt_ind() > at + 1)
        reading.roles[i + 1] = Role::VALUE;
      reading.options.push_back({c == 0 ? opt.long_option() : std::string(1, static_cast<char>(c)), i, opt.opt_arg()});
    }
  }
}

Reading read_own_options(int argc, char** argv)
{
  Starter_Get_Opt opt(argc, argv);
  return read_line(opt, argc, argv);
}

Reading read_configurator_options(int argc, char** argv)
{
  Service_Config_Get_Opt opt(argc, argv, true);
  return read_line(opt, argc, argv);
}

bool lacks_value(int argc, char** argv)
{
  std::vector<char*> longer(argv, argv + argc);
  char value[] = "value";
  longer.push_back(value);
  longer.push_back(nullptr);

  const std::size_t added = static_cast<std::size_t>(argc);
  return read_own_options(argc + 1, longer.data()).roles[added] == Role::VALUE ||
         read_configurator_options(argc + 1, longer.data()).roles[added] == Role::VALUE;
}
