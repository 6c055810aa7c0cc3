#include "starter/options.h"

#include "scrt/natoi.h"

#include <ace/OS_NS_string.h>

// There are no short options. The '-' repeats the request for the order of the command line: without it,
// POSIXLY_CORRECT in the environment would end the options at the first stray word.
Starter_Get_Opt::Starter_Get_Opt(int argc, char** argv) : ACE_Get_Opt(argc, argv, "-", 1, 0, RETURN_IN_ORDER, 0)
{
  long_option("threads", ARG_REQUIRED);
  long_option("reactor", ARG_REQUIRED);
  long_option("background", NO_ARG);
  long_option("user", ARG_REQUIRED);
  long_option("primary-group", ARG_REQUIRED);
  long_option("group", ARG_REQUIRED);
}

static void set_option(Starter_Options& options, const char* name, char* value)
{
  if (ACE_OS::strcmp(name, "threads") == 0)
    options.n = natoi<unsigned, char*>(value, nullptr, nullptr);
  else if (ACE_OS::strcmp(name, "reactor") == 0)
    options.type = value;
  else if (ACE_OS::strcmp(name, "background") == 0)
    options.background = true;
  else if (ACE_OS::strcmp(name, "user") == 0)
    options.opt_user = value;
  else if (ACE_OS::strcmp(name, "primary-group") == 0)
    options.opt_group = value;
  else
    options.opt_groups.push_back(value);
}

Starter_Options parse_options(int argc, char** argv)
{
  Starter_Get_Opt opt(argc, argv);

  Starter_Options options;
  for (int c; (c = opt()) != -1;)
    if (c == 0)
      set_option(options, opt.long_option(), opt.opt_arg());

  return options;
}
