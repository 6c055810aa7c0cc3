// This library is preloaded into a process under test. It appends the options that the program registers with a parser
// to the file that OPTION_PROBE names. A line is a long option, "--name" or "--name=" if it takes an argument, or the
// string of short options.

#include <ace/Get_Opt.h>

#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>

int ACE_Get_Opt::long_option(const ACE_TCHAR* name, OPTION_ARG_MODE has_arg)
{
  using long_option_t = int (*)(ACE_Get_Opt*, const ACE_TCHAR*, OPTION_ARG_MODE);
  static const long_option_t next =
      reinterpret_cast<long_option_t>(::dlsym(RTLD_NEXT, "_ZN11ACE_Get_Opt11long_optionEPKcNS_15OPTION_ARG_MODEE"));

  if (std::FILE* const fp = std::fopen(std::getenv("OPTION_PROBE"), "ae")) {
    std::fprintf(fp, "--%s%s\n%s\n", name, has_arg == ARG_REQUIRED ? "=" : "", optstring());
    std::fclose(fp);
  }
  return next(this, name, has_arg);
}
