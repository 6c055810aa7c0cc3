#ifndef STARTER_OPTIONS_H
#define STARTER_OPTIONS_H

#include <ace/Get_Opt.h>

#include <vector>

/// What the command line asks the program itself for. The texts point into it.
struct Starter_Options
{
  const char* type = nullptr;
  unsigned n = 0;
  bool background = false;
  const char* opt_user = nullptr;
  const char* opt_group = nullptr;
  std::vector<const char*> opt_groups;
};

/// The parser of the program's own options, behind the program's name. It yields 0 for each of them, 1 for a word that
/// is no option, and '?' for what it does not know or what lacks its value. Prints nothing.
class Starter_Get_Opt : public ACE_Get_Opt
{
public:
  Starter_Get_Opt(int argc, char** argv);
};

/// The options that are ours; everything else on the line is somebody else's and passed over without a word.
/// Of an option given twice the later one counts; only groups add up. `argv` stays as it is.
Starter_Options parse_options(int argc, char** argv);

#endif // STARTER_OPTIONS_H
