// This service tells which loop threads hang in a callback: see starter-guard(8).

#include "companions/guard/guard.h"

#include "companions/common/program_note.h"
#include "companions/guard/guard_thread.h"
#include "companions/guard/judge.h"
#include "companions/guard/sampler.h"
#include "companions/guard/stalls.h"
#include "companions/guard/watch.h"

#include "scrt/log.h"

#include <ace/Get_Opt.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>

enum { MIN_LIMIT_MSEC = 20, MAX_LIMIT_MSEC = 3600000 };

static std::atomic<bool> is_loaded; // a second guard in the process would have to share its thread with the first

/// The configuration file loads this service. Its arguments are described in starter-guard(8).
class Guard : public ACE_Service_Object
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;
  int fini() override;

private:
  bool has_started_ = false;
};

// ---- Arguments

static bool parse_msec(const char* text, long& msec)
{
  const char* const end = text + std::strlen(text);
  const auto [rest, error] = std::from_chars(text, end, msec);

  return error == std::errc() && rest == end && msec >= MIN_LIMIT_MSEC && msec <= MAX_LIMIT_MSEC;
}

// Logs the reason of a failure.
static bool parse_option(int option, const ACE_Get_Opt& opt, Watch_Options& options)
{
  switch (option) {
  case 'w':
    options.counts = true;
    return true;
  case 't':
  case 'k':
    if (parse_msec(opt.opt_arg(), option == 't' ? options.limit_msec : options.kill_msec))
      return true;
    LOG_FAILED(LM_ERROR, "Failed to start the guard: -%c takes %d to %d milliseconds, and not '%C'\n", option,
               MIN_LIMIT_MSEC, MAX_LIMIT_MSEC, opt.opt_arg());
    return false;
  case ':':
    LOG_FAILED(LM_ERROR, "Failed to start the guard: -%C needs a value\n", opt.last_option());
    return false;
  default:
    LOG_FAILED(LM_ERROR, "Failed to start the guard: there is no option -%C\n", opt.last_option());
    return false;
  }
}

// Logs the reason of a failure.
static bool parse_arguments(int argc, ACE_TCHAR* argv[], Watch_Options& options)
{
  ACE_Get_Opt opt(argc, argv, ":t:k:w", 0);
  for (int option; (option = opt()) != -1;)
    if (!parse_option(option, opt, options))
      return false;

  if (opt.opt_ind() < argc) {
    LOG_FAILED(LM_ERROR, "Failed to start the guard: '%C' is no option\n", argv[opt.opt_ind()]);
    return false;
  }
  if (options.kill_msec != 0 && options.kill_msec <= options.limit_msec) {
    LOG_FAILED(LM_ERROR, "Failed to start the guard: -k %d is not more than -t %d\n",
               static_cast<int>(options.kill_msec), static_cast<int>(options.limit_msec));
    return false;
  }
  return true;
}

// ---- The service

int Guard::init(int argc, ACE_TCHAR* argv[])
{
  Watch_Options options;
  if (!parse_arguments(argc, argv, options))
    return -1;
  prepare_to_judge();

  const starter_loops_t loops = find_starter_loops();
  if (!loops)
    LOG_FAILED(LM_ERROR, "Failed to start the guard: this program does not tell the turns of its loop threads\n");
  else if (is_loaded)
    LOG_FAILED(LM_ERROR, "Failed to start the guard: it is there under another name\n");
  else if (open_sampler() == 0)
    LOG_FAILED(LM_ERROR, "Failed to start the guard: every real-time signal has a handler\n");
  else if (start_guard_thread(options, loops) != 0)
    LOG_FAILED(LM_ERROR, "Failed to start the thread of the guard, errno=%d, %m\n", errno);
  else
    is_loaded = has_started_ = true;
  return has_started_ ? 0 : -1;
}

int Guard::fini()
{
  if (!has_started_)
    return 0;

  stop_guard_thread();
  is_loaded = false;
  return 0;
}

// ---- For other services

unsigned long starter_guard_stalls()
{
  return count_stalls();
}

unsigned starter_guard_stalled_threads()
{
  return is_loaded ? count_stalled_threads() : 0;
}

ACE_FACTORY_DEFINE(ACE_Svc, Guard)
