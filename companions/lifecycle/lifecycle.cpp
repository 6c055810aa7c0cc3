// This service tells systemd what the process does: see starter-lifecycle(8).

#include "companions/lifecycle/supervision.h"

#include "scrt/log.h"

#include <ace/Get_Opt.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <system_error>

enum { LIMIT_SEC = 300, PAUSE_SEC = 5, MAX_SEC = 86400 };

/// The configuration file loads this service. Its arguments are described in starter-lifecycle(8).
class Lifecycle : public ACE_Service_Object
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;
  int fini() override;

private:
  bool has_begun_ = false; // by this object: a second one in the process must not end what the first one began
};

// ---- Arguments

static bool parse_seconds(const char* text, std::chrono::seconds& value)
{
  int number = 0;
  const char* const end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, number);
  if (error != std::errc() || stop != end || number < 0 || number > MAX_SEC)
    return false;

  value = std::chrono::seconds(number);
  return true;
}

// Logs the reason of a failure.
static bool parse_arguments(int argc, ACE_TCHAR* argv[], Time_Limits& limits)
{
  ACE_Get_Opt opt(argc, argv, ":l:p:", 0);
  for (int c; (c = opt()) != -1;)
    if (c == ':') {
      LOG_FAILED(LM_ERROR, "Failed to start the lifecycle: -%C needs a value\n", opt.last_option());
      return false;
    } else if (c != 'l' && c != 'p') {
      LOG_FAILED(LM_ERROR, "Failed to start the lifecycle: there is no option -%C\n", opt.last_option());
      return false;
    } else if (!parse_seconds(opt.opt_arg(), c == 'l' ? limits.limit : limits.pause)) {
      LOG_FAILED(LM_ERROR, "Failed to start the lifecycle: -%c takes seconds from 0 to %d, and not '%C'\n", c, MAX_SEC,
                 opt.opt_arg());
      return false;
    }

  if (opt.opt_ind() < argc) {
    LOG_FAILED(LM_ERROR, "Failed to start the lifecycle: '%C' is no option\n", argv[opt.opt_ind()]);
    return false;
  }
  return true;
}

// ---- The service

int Lifecycle::init(int argc, ACE_TCHAR* argv[])
{
  Time_Limits limits{std::chrono::seconds(LIMIT_SEC), std::chrono::seconds(PAUSE_SEC)};
  if (!parse_arguments(argc, argv, limits))
    return -1;

  const char* const address = std::getenv("NOTIFY_SOCKET");
  if (!address || !*address)
    return 0; // nobody wants to know

  if (begin_supervision(address, limits) != 0) {
    LOG_FAILED(LM_ERROR, "Failed to start the lifecycle at %C, errno=%d, %m\n", address, errno);
    return -1;
  }
  has_begun_ = true;
  return 0;
}

int Lifecycle::fini()
{
  if (has_begun_)
    end_supervision();
  return 0;
}

ACE_FACTORY_DEFINE(ACE_Svc, Lifecycle)
