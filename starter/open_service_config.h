#ifndef STARTER_OPEN_SERVICE_CONFIG_H
#define STARTER_OPEN_SERVICE_CONFIG_H

#include "starter/configuration.h"
#include "starter/service_config_argv.h"

#include <ace/ACE.h>
#include <ace/Dirent.h>
#include <ace/Get_Opt.h>
#include <ace/OS_NS_string.h>
#include <ace/OS_NS_sys_stat.h>

#include <climits>
#include <cstddef>
#include <set>
#include <string>

#include <dirent.h>

/// The options of the service configurator, as ACE_Get_Opt takes them. The leading '-' repeats the request for the
/// order of the command line: without it, POSIXLY_CORRECT in the environment would end the options at the first stray
/// word.
constexpr char SERVICE_CONFIG_OPTIONS[] = "-bdf:k:nyp:s:S:";

/// The characters that end the name of an environment variable wherever they stand. The framework ends a name at a
/// backslash and at a quote too, but it may have taken these out of the text before, so that the name goes on.
constexpr char VARIABLE_NAME_ENDS[] = "$~!#%^&*()-+=|/?,.;:`[]{} \t\n\r";

/// Whether the framework can substitute the environment variables that `text` names. The framework copies a name into a
/// buffer of ACE_DEFAULT_ARGV_BUFSIZ characters without checking its length, after it has removed quotes from the text.
inline bool is_safe_to_substitute(const char* text)
{
  for (const char* p = ACE_OS::strchr(text, '$'); p; p = ACE_OS::strchr(p + 1, '$'))
    if (ACE_OS::strcspn(p + 1, VARIABLE_NAME_ENDS) >= ACE_DEFAULT_ARGV_BUFSIZ)
      return false;

  return true;
}

/// Add an option letter, as "-x", and its value. A value that the framework would not survive is dropped with its
/// letter, like any malformed option.
inline void add_option(Service_Config_Argv& args, const char* letter, const char* value)
{
  if (!is_safe_to_substitute(value))
    return;

  args.append(letter);
  args.append(value, true);
}

/// The characters that have a meaning in the framework's line.
constexpr char QUOTED_CHARACTERS[] = "\"' \t\n\v\f\r";

/// The text that the framework's line has to hold for `path` to come out of it as one argument: white space and quotes
/// stand between quotes. A backslash is an ordinary character outside of quotes only, so it stays there.
inline std::string quote_path(const std::string& path)
{
  std::string text;
  for (const char c : path)
    if (c == '"')
      text += "'\"'";
    else if (ACE_OS::strchr(QUOTED_CHARACTERS, c))
      text += std::string(1, '"') + c + '"';
    else
      text += c;

  return text;
}

/// Whether the entry of a directory is a regular file, or a symbolic link to one. `path` is the path of the entry, at
/// which only entries are looked that do not tell: links, those of file systems that keep no types, and those whose
/// path is too long to be opened.
inline bool is_regular_entry(const ACE_DIRENT& entry, const std::string& path)
{
  switch (entry.d_type) {
  case DT_REG:
    return path.size() < PATH_MAX;
  case DT_LNK:
  case DT_UNKNOWN:
    return is_regular_file(path.c_str());
  default:
    return false;
  }
}

/// Add to `svc_cfgs` the path of every regular file with the extension "conf" in the directory `prefix`.
/// False when `prefix` cannot be opened as a directory.
inline bool find_service_configs(const char* prefix, std::set<std::string>& svc_cfgs)
{
  ACE_Dirent dir;
  if (dir.open(prefix) != 0)
    return false;

  std::string path(prefix);
  path += '/';
  const std::size_t name_at = path.size();

  // A directory that may be read and not searched tells the types of files that cannot be opened.
  ACE_stat st;
  if (ACE_OS::stat((path + '.').c_str(), &st) != 0)
    return true;

  while (const ACE_DIRENT* const entry = dir.read()) {
    if (ACE::isdotdir(entry->d_name) || !is_file_extension(entry->d_name, "conf"))
      continue;

    path.replace(name_at, std::string::npos, entry->d_name);
    if (is_regular_entry(*entry, path))
      svc_cfgs.insert(path);
  }

  return true;
}

/// The parser of the configurator's options: it yields their letters, 0 for the long option "thread-pool", 1 for a word
/// that is no option, and '?' for what it does not know or what lacks its value. Prints nothing.
class Service_Config_Get_Opt : public ACE_Get_Opt
{
public:
  Service_Config_Get_Opt(int argc, char** argv, bool skip_first_arg)
      : ACE_Get_Opt(argc, argv, SERVICE_CONFIG_OPTIONS, skip_first_arg ? 1 : 0, 0, RETURN_IN_ORDER, 0)
  {
    long_option("thread-pool", ARG_REQUIRED); // known, so that its value is dropped with it
  }
};

/// Build the service configurator's argument vector from the command line and hand it to `open_service`, any callable
/// taking (int, char**) and returning bool; the result is the callable's. The vector lives until the callable returns.
///
/// `argv` holds `argc` arguments. With `skip_first_arg` its first one is the program name and leads the new vector,
/// unless it is empty; otherwise "dummy" does. Without `skip_first_arg` every argument is parsed.
/// -b, -d, -n, -y and, with their values, -k, -p, -s, -S and -f are passed on, one letter an argument. Of -f, a
/// directory stands for its regular files with the extension "conf", in byte-wise order; anything else is passed on as
/// a file. Everything else is dropped, "--" ends the options.
/// In every text the framework replaces the first $NAME by that environment variable, if it is set. Otherwise a path
/// found in a directory stays as it is and one argument, while white space and quotes in values of the command line are
/// left to the framework, which joins all arguments into one line and splits it again.
/// Without the memory for the vector, the callable gets 0 and null.
/// Main thread, before any other exists. Logs nothing.
template <typename T>
bool open_service_config(int argc, char** argv, bool skip_first_arg, T open_service)
{
  std::set<std::string> svc_cfgs;
  std::set<std::string> quoted_cfgs; // owns the texts of paths that args refers to
  Service_Config_Argv args;
  Service_Config_Get_Opt opt(argc, argv, skip_first_arg);

  // An empty name would vanish, and an option be taken for the name.
  if (skip_first_arg && argc > 0 && *argv[0] && is_safe_to_substitute(argv[0]))
    args.append(argv[0], true);
  else
    args.append("dummy");

  for (int c; (c = opt()) != -1;)
    switch (c) {
    case 'b':
      args.append("-b");
      break;
    case 'd':
      args.append("-d");
      break;
    case 'n':
      args.append("-n");
      break;
    case 'y':
      args.append("-y");
      break;
    case 'k':
      add_option(args, "-k", opt.opt_arg());
      break;
    case 'p':
      add_option(args, "-p", opt.opt_arg());
      break;
    case 's':
      add_option(args, "-s", opt.opt_arg());
      break;
    case 'S':
      add_option(args, "-S", opt.opt_arg());
      break;
    case 'f':
      if (!find_service_configs(opt.opt_arg(), svc_cfgs)) {
        add_option(args, "-f", opt.opt_arg());
        break;
      }
      // Kept as it is: the set grows over the whole command line, so a second directory passes the files of the
      // first one again, in one order with its own; the configurator processes files in the order given.
      for (const std::string& i : svc_cfgs) {
        const bool is_plain = !ACE_OS::strpbrk(i.c_str(), QUOTED_CHARACTERS);
        args.append("-f");
        args.append(is_plain ? i.c_str() : quoted_cfgs.insert(quote_path(i)).first->c_str());
      }
      break;
    default: // "thread-pool", and what is not for the configurator, the program's own options among it
      break;
    }

  char** const vector = args.whole_argv();
  return vector ? open_service(args.argc(), vector) : open_service(0, vector);
}

#endif // STARTER_OPEN_SERVICE_CONFIG_H
