// This is the least that a host of services can be, and the program is compared with it: it is linked to the framework,
// opens the service configurator and runs the event loop. It reports when it gets there.

#include <ace/Reactor.h>
#include <ace/Service_Config.h>

#include <unistd.h>

int main(int argc, char** argv)
{
  ACE_Service_Config::open(argc, argv, ACE_DEFAULT_LOGGER_KEY, false, false, true);
  if (::write(STDERR_FILENO, "is started.\n", 12) != 12)
    return 1;
  ACE_Reactor::instance()->run_reactor_event_loop();
  return 0;
}
