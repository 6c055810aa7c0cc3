// This service sends the log records of the process to systemd's journal: see starter-journal(8).

#include "companions/journal/journal_backend.h"

#include "scrt/log.h"

#include <ace/Get_Opt.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>

static const char JOURNAL_PATH[] = "/run/systemd/journal/socket"; // that of systemd, on every system

/// The configuration file loads this service. Its arguments are described in starter-journal(8).
class Journal : public ACE_Service_Object
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;
  int fini() override;
};

// The backend outlives the objects of the service, as a reload makes a new one, and the number of lost records with it.
// Nothing destroys the backend: records are written until the very end of the process.
static Journal_Backend& get_backend()
{
  alignas(Journal_Backend) static char memory[sizeof(Journal_Backend)];
  static Journal_Backend* const backend = new (memory) Journal_Backend;
  return *backend;
}

// ---- Arguments

static bool parse_echo(const char* text, Echo& echo)
{
  if (std::strcmp(text, "lost") == 0)
    echo = Echo::LOST;
  else if (std::strcmp(text, "all") == 0)
    echo = Echo::ALL;
  else if (std::strcmp(text, "none") == 0)
    echo = Echo::NONE;
  else
    return false;
  return true;
}

// Logs the reason of a failure.
static bool parse_arguments(int argc, ACE_TCHAR* argv[], const char*& path, Echo& echo)
{
  ACE_Get_Opt opt(argc, argv, ":e:s:", 0);
  for (int c; (c = opt()) != -1;)
    if (c == 's')
      path = opt.opt_arg();
    else if (c == ':') {
      LOG_FAILED(LM_ERROR, "Failed to start the journal: -%C needs a value\n", opt.last_option());
      return false;
    } else if (c != 'e') {
      LOG_FAILED(LM_ERROR, "Failed to start the journal: there is no option -%C\n", opt.last_option());
      return false;
    } else if (!parse_echo(opt.opt_arg(), echo)) {
      LOG_FAILED(LM_ERROR, "Failed to start the journal: -e takes lost, all or none, and not '%C'\n", opt.opt_arg());
      return false;
    }

  if (opt.opt_ind() < argc) {
    LOG_FAILED(LM_ERROR, "Failed to start the journal: '%C' is no option\n", argv[opt.opt_ind()]);
    return false;
  }
  return true;
}

// ---- The service

int Journal::init(int argc, ACE_TCHAR* argv[])
{
  const char* path = JOURNAL_PATH;
  Echo echo = Echo::LOST;
  if (!parse_arguments(argc, argv, path, echo))
    return -1;

  if (get_backend().install(path, echo) != 0) {
    LOG_FAILED(LM_ERROR, "Failed to start the journal at %C, errno=%d, %m\n", path, errno);
    return -1;
  }
  return 0;
}

int Journal::fini()
{
  // An entry would have told it, but perhaps there is none any more. The record comes before the end: afterwards, it
  // would wait for a standard error that leads to a journal which stands still.
  if (const unsigned long lost = get_backend().lost(); lost != 0)
    LOG_RECORD(LM_WARNING, "The journal did not get %B records\n", static_cast<std::size_t>(lost));
  get_backend().remove();
  return 0;
}

ACE_FACTORY_DEFINE(ACE_Svc, Journal)
