// This service takes commands from operators: see starter-control(8).

#include "companions/control/process_view.h"
#include "companions/control/server.h"

#include "scrt/log.h"

#include <ace/Get_Opt.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <cerrno>
#include <cstdlib>
#include <new>
#include <string>

/// The configuration file loads this service. Its arguments are described in starter-control(8).
class Control : public ACE_Service_Object
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;
  int fini() override;
};

// These outlive the objects of the service, as a reload makes a new one. Nothing destroys them: their thread and their
// place in the log may be in use until the very end of the process.
static Process_View& get_view()
{
  alignas(Process_View) static char memory[sizeof(Process_View)];
  static Process_View* const view = new (memory) Process_View;
  return *view;
}

static Server& get_server()
{
  alignas(Server) static char memory[sizeof(Server)];
  static Server* const server = new (memory) Server(get_view());
  return *server;
}

// ---- Arguments

// The system gives several directories with colons between them.
static std::string default_path()
{
  const char* const variable = std::getenv("RUNTIME_DIRECTORY");
  const std::string directories = variable ? variable : "";
  return directories.empty() ? "" : directories.substr(0, directories.find(':')) + "/control.socket";
}

// Logs the reason of a failure.
static bool parse_arguments(int argc, ACE_TCHAR* argv[], std::string& path)
{
  ACE_Get_Opt opt(argc, argv, ":s:", 0);
  for (int c; (c = opt()) != -1;)
    if (c == 's')
      path = opt.opt_arg();
    else if (c == ':') {
      LOG_FAILED(LM_ERROR, "Failed to start the control: -%C needs a value\n", opt.last_option());
      return false;
    } else {
      LOG_FAILED(LM_ERROR, "Failed to start the control: there is no option -%C\n", opt.last_option());
      return false;
    }

  if (opt.opt_ind() < argc) {
    LOG_FAILED(LM_ERROR, "Failed to start the control: '%C' is no option\n", argv[opt.opt_ind()]);
    return false;
  }
  if (path.empty())
    LOG_FAILED(LM_ERROR, "Failed to start the control: there is neither -s nor the environment variable "
                         "RUNTIME_DIRECTORY\n");
  return !path.empty();
}

// ---- The service

// Logs the reason of a failure.
static bool begin_service(const std::string& path)
{
  std::string reason;
  if (!get_view().enter(reason)) {
    LOG_FAILED(LM_ERROR, "Failed to start the control: %C\n", reason.c_str());
    return false;
  }
  if (get_server().attach(path) != 0) {
    LOG_FAILED(LM_ERROR, "Failed to start the control at %C, errno=%d, %m\n", path.c_str(), errno);
    return false;
  }
  return true;
}

int Control::init(int argc, ACE_TCHAR* argv[])
{
  std::string path = default_path();
  if (!parse_arguments(argc, argv, path))
    return -1;
  if (get_view().own_object()) {
    LOG_FAILED(LM_ERROR, "Failed to start the control: it is there under another name\n");
    return -1;
  }
  if (!begin_service(path))
    return -1;

  get_view().set_own_object(static_cast<ACE_Service_Object*>(this));
  return 0;
}

int Control::fini()
{
  if (get_view().own_object() != static_cast<ACE_Service_Object*>(this))
    return 0;

  get_view().set_own_object(nullptr);
  if (get_view().is_reloading()) {
    get_server().detach();
    return 0;
  }
  get_server().stop();
  get_view().leave();
  return 0;
}

ACE_FACTORY_DEFINE(ACE_Svc, Control)
