// This service serves the metrics of the process to Prometheus: see starter-metrics(8).

#include "companions/metrics/observation.h"

#include "scrt/log.h"

#include <ace/Get_Opt.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <cerrno>

/// The configuration file loads this service. Its arguments are described in starter-metrics(8).
class Metrics : public ACE_Service_Object
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;
  int fini() override;

private:
  bool has_begun_ = false; // by this object: a second one in the process must not end what the first one began
};

// Logs the reason of a failure.
static bool parse_arguments(int argc, ACE_TCHAR* argv[], const char*& address)
{
  ACE_Get_Opt opt(argc, argv, ":l:", 0);
  for (int c; (c = opt()) != -1;)
    if (c == 'l')
      address = opt.opt_arg();
    else {
      LOG_FAILED(LM_ERROR,
                 c == ':' ? "Failed to start the metrics: -%C needs a value\n"
                          : "Failed to start the metrics: there is no option -%C\n",
                 opt.last_option());
      return false;
    }

  if (opt.opt_ind() < argc) {
    LOG_FAILED(LM_ERROR, "Failed to start the metrics: '%C' is no option\n", argv[opt.opt_ind()]);
    return false;
  }
  return true;
}

int Metrics::init(int argc, ACE_TCHAR* argv[])
{
  const char* address = "127.0.0.1:9464";
  if (!parse_arguments(argc, argv, address))
    return -1;

  if (begin_observation(address) == 0)
    has_begun_ = true;
  else if (errno == EINVAL)
    LOG_FAILED(LM_ERROR, "Failed to start the metrics: -l takes ADDRESS:PORT or unix:/PATH, and not '%C'\n", address);
  else
    LOG_FAILED(LM_ERROR, "Failed to start the metrics at %C, errno=%d, %m\n", address, errno);
  return has_begun_ ? 0 : -1;
}

int Metrics::fini()
{
  if (has_begun_)
    end_observation();
  return 0;
}

ACE_FACTORY_DEFINE(ACE_Svc, Metrics)
