#include "starter/configuration.h"

#include "scrt/log.h"
#include "starter/interrupted.h"

#include <ace/Get_Opt.h>
#include <ace/OS_NS_string.h>
#include <ace/OS_NS_sys_stat.h>
#include <ace/Service_Config.h>

#include <cerrno>
#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

const char* find_file_extension(const char* path)
{
  if (!path || !*path)
    return nullptr;

  return ACE_OS::strrchr(path, '.');
}

bool is_file_extension(const char* path, const char* ext)
{
  if (!ext || !*ext)
    return false;

  const char* const found = find_file_extension(path);
  return found && ACE_OS::strcmp(found + 1, ext) == 0;
}

bool is_regular_file(const char* path)
{
  ACE_stat st;

  return ACE_OS::stat(path, &st) == 0 && S_ISREG(st.st_mode);
}

// Whether the file of `size` bytes can be read to its end. The reason why not is in `errno`. A size of 0 counts as
// unknown, because it is also that of files which the system makes as they are read.
static bool is_read_to_end(int fd, off_t size)
{
  char buf[4096];

  for (off_t left = size;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n == 0 || (n < 0 && errno == EAGAIN)) // one that has nothing yet is waited for later
      return true;
    if (n < 0 && errno != EINTR)
      return false;
    if (n > 0 && (left -= n) == 0) // spares a read that tells of the end; a short read alone may precede a failure
      return true;
  }
}

Content look_into(const char* path)
{
  ACE_stat st;
  if (ACE_OS::stat(path, &st) != 0)
    return Content::NOT_OPENED;
  if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode))
    return Content::READABLE;

  const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd == -1) {
    // A descriptor may be free again when the framework opens the directory.
    if (!S_ISDIR(st.st_mode) || (errno != EMFILE && errno != ENFILE))
      return Content::NOT_OPENED;
    errno = EISDIR;
    return Content::UNREADABLE;
  }

  const bool is_readable = is_read_to_end(fd, st.st_size);
  const int e = errno;
  ::close(fd);
  errno = e;
  return is_readable ? Content::READABLE : Content::UNREADABLE;
}

// Grants a look at the files that the configurator reads at every reconfiguration.
class Configured_Files : private ACE_Service_Gestalt
{
public:
  // The file of `gestalt` that would end the process, with the reason in `errno`, or null.
  static const char* find_unreadable(ACE_Service_Gestalt& gestalt);
};

const char* Configured_Files::find_unreadable(ACE_Service_Gestalt& gestalt)
{
  ACE_SVC_QUEUE* const files = gestalt.*(&Configured_Files::svc_conf_file_queue_);
  if (!files)
    return nullptr;

  ACE_TString* file = nullptr;
  for (ACE_SVC_QUEUE_ITERATOR i(*files); i.next(file) != 0; i.advance())
    switch (look_into(file->c_str())) {
    case Content::READABLE:
      break;
    case Content::NOT_OPENED: // the framework reads no further either
      return nullptr;
    case Content::UNREADABLE:
      return file->c_str();
    }
  return nullptr;
}

bool is_reload_possible()
{
  const char* const file = Configured_Files::find_unreadable(*ACE_Service_Config::current());
  if (!file)
    return true;

  const Handler_Memory_Guard memory;
  LOG_FAILED(LM_ERROR, "Failed to read %s, nothing is reloaded, errno=%d, %m\n", file, errno);
  return false;
}

// The configurator's arguments, with an empty file in the place of each that would end the process. The configurator
// counts the files and keeps their order, so none of them is taken away.
class Safe_Arguments
{
public:
  Safe_Arguments(int argc, char** argv);

  char** argv() { return arguments_.data(); }
  bool is_default_file_safe() const { return is_default_file_safe_; }

private:
  const std::string& directory();
  bool is_safe(const char* file);
  void replace(const char* file);

  const int argc_;
  char** const argv_;
  std::vector<char*> arguments_;
  std::list<std::string> replacements_;  // the texts of arguments
  std::optional<std::string> directory_; // see directory()
  bool is_default_file_safe_ = true;
};

// Returns what stands before a relative path. The configurator reads its arguments twice. In the first reading it finds
// that it is to go to the background, which it does before it opens a file, and the working directory changes.
const std::string& Safe_Arguments::directory()
{
  if (directory_)
    return *directory_;

  directory_ = std::string();
  ACE_Get_Opt opt(argc_, argv_, "bs:p:", 1, 0, ACE_Get_Opt::RETURN_IN_ORDER);
  for (int c; (c = opt()) != -1;)
    if (c == 'b')
      *directory_ = "/";
  return *directory_;
}

bool Safe_Arguments::is_safe(const char* file)
{
  const Content content = *file == '/' ? look_into(file) : look_into((directory() + file).c_str());
  if (content != Content::UNREADABLE)
    return true;

  LOG_FAILED(LM_ERROR, "Failed to read %s, which is left out, errno=%d, %m\n", file, errno);
  return false;
}

// `file` is one of the arguments, or the end of one.
void Safe_Arguments::replace(const char* file)
{
  for (char*& argument : arguments_)
    if (argument && argument + ACE_OS::strlen(argument) == file + ACE_OS::strlen(file)) {
      replacements_.push_back(std::string(argument, static_cast<std::size_t>(file - argument)) + "/dev/null");
      argument = replacements_.back().data();
      return;
    }
}

Safe_Arguments::Safe_Arguments(int argc, char** argv) : argc_(argc), argv_(argv), arguments_(argv, argv + argc)
{
  arguments_.push_back(nullptr);

  // The second reading, in which it finds its files. It changes the order of the arguments.
  std::vector<char*> line = arguments_;
  ACE_Get_Opt opt(argc, line.data(), "df:k:nyS:", 1);
  bool has_files = false;
  for (int c; (c = opt()) != -1;)
    if (c == 'f') {
      has_files = true;
      if (!is_safe(opt.opt_arg()))
        replace(opt.opt_arg());
    }

  if (!has_files)
    is_default_file_safe_ = is_safe(ACE_DEFAULT_SVC_CONF);
}

bool do_open_service(int argc, char** argv)
{
  if (!argv) {
    errno = ENOMEM;
    LOG_FAILED(LM_ERROR, "Failed to build the arguments of the service configurator, errno=%d, %m\n", errno);
    return false;
  }

  // The configurator would install a hang-up disposition of its own, which sets a flag that our loop never looks at.
  // Constructing one for signal 0 keeps it from that, and leaves -s its meaning. The singleton must exist by then:
  // its own construction sets the signal back.
  (void)ACE_Service_Config::singleton();
  const ACE_Service_Config without_signal(true, ACE_Service_Repository::DEFAULT_SIZE, 0);

  Safe_Arguments arguments(argc, argv);
  const bool ignore_default_file = !arguments.is_default_file_safe();
  return ACE_Service_Config::open(argc, arguments.argv(), ACE_DEFAULT_LOGGER_KEY, false, ignore_default_file, true) ==
         0;
}
