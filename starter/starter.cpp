#include "starter/background.h"
#include "starter/configuration.h"
#include "starter/event_loop.h"
#include "starter/fault.h"
#include "starter/host_phase.h"
#include "starter/identity.h"
#include "starter/machine.h"
#include "starter/open_service_config.h"
#include "starter/options.h"
#include "starter/signals.h"
#include "starter/stl_exports.h"
#include "starter/systemd_handler.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_unistd.h>
#include <ace/Reactor.h>
#include <ace/Service_Config.h>

#include <exception>
#include <memory>

int main(int argc, char** argv)
{
  std::set_terminate(handle_terminate);
  init_stl_symbols();

  const Starter_Options options = parse_options(argc, argv);
  unsigned threads = 0;
  std::unique_ptr<ACE_Reactor> recycler; // deletes the replaced reactor, after the configurator has been closed
  // A process that fails to get to the background keeps its identity and the default reactor.
  if (!options.background || go_to_background()) {
    switch_identity(options.opt_user, options.opt_group, options.opt_groups);
    if (ACE_Reactor* const r = get_reactor(options.type, options.n, threads)) // belongs to the account by now
      recycler.reset(ACE_Reactor::instance(r, true));
  }

  char host[64];
  if (ACE_OS::hostname(host, sizeof host) == 0)
    ACE_Log_Msg::instance()->local_host(host);

  set_host_phase(LOADING);
  init_signal_handlers(); // before services load: their threads start under our dispositions
  open_service_config(argc, argv, true, do_open_service);
  log_system_info();
  new_event_handler<Systemd_Handler>();
  log_product_info(); // the last record before the loop runs

  run_event_loop(threads);

  ACE_Service_Config::fini_svcs();
  ACE_Service_Config::close();
  return 0;
}
