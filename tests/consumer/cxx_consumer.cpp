// The program calls every unit of the library once. Its only argument is a directory to work in.

#include <scrt/compat_open.h>
#include <scrt/log.h>
#include <scrt/make_reactor.h>
#include <scrt/mkdir_p.h>
#include <scrt/natoi.h>
#include <scrt/path_conf.h>
#include <scrt/snprintf_t.h>
#include <scrt/string_sprintf.h>

#include <ace/OS_NS_stdlib.h>

#include <cstdio>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

static int is_cloexec(int fd)
{
  return fcntl(fd, F_GETFD) & FD_CLOEXEC;
}

int main(int, char** argv)
{
  const Path_Conf path(argv[1], "etc", true, "svc.conf", 0755);
  FILE* const fp = fopen_compat(path.str().c_str(), "we");
  const int fd = open_cloexec(path.str().c_str(), O_RDONLY);
  std::printf("stream %d, descriptor %d\n", is_cloexec(fileno(fp)), is_cloexec(fd));
  std::fclose(fp);
  close(fd);

  std::string below(path.str(), 0, path.str().rfind('/'));
  struct stat st;
  char* const dirname = longest_exist_dirname((below + "/a/b").c_str(), &st);
  std::printf("exists %d, made %d\n", below == dirname, mkdir_p((below + "/a").c_str(), 0755, nullptr));
  ACE_OS::free(dirname);

  const std::unique_ptr<ACE_Reactor> reactor(get_reactor_factory("select", 1)());
  std::printf("reactor %d, number %d\n", reactor != nullptr, natoi<int, const char*>("42", nullptr, nullptr));

  std::string text;
  string_sprintf(text, "%s %d", "text", 1);
  const snprintf_t<4, char> grown("%s", "grown");
  std::printf("%s, %s\n", text.c_str(), grown.c_str());
  LOG_RECORD(LM_INFO, "logged\n");
  return 0;
}
