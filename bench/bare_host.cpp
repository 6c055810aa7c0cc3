// This is the least that a host of services can be, and the program is compared with it: it is linked to the framework,
// makes the reactor that it is asked for, opens the service configurator and runs the event loop, in a pool if it is
// asked for threads. It reports when it gets there.
//
//   bare_host [KIND THREADS [ARGUMENT_OF_THE_CONFIGURATOR...]]

#include <ace/Dev_Poll_Reactor.h>
#include <ace/Priority_Reactor.h>
#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/Service_Config.h>
#include <ace/TP_Reactor.h>
#include <ace/Thread_Manager.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include <unistd.h>

static ACE_Reactor_Impl* make(const std::string& kind)
{
  if (kind == "tp")
    return new ACE_TP_Reactor;
  if (kind == "dev_poll")
    return new ACE_Dev_Poll_Reactor;
  if (kind == "priority")
    return new ACE_Priority_Reactor;
  return new ACE_Select_Reactor;
}

static void end_loop(int)
{
  (void)ACE_Reactor::instance()->end_reactor_event_loop();
}

static void* run_loop(void*)
{
  ACE_Reactor::instance()->owner(ACE_OS::thr_self());
  ACE_Reactor::instance()->run_reactor_event_loop();
  return nullptr;
}

int main(int argc, char** argv)
{
  if (argc > 1)
    ACE_Reactor::instance(new ACE_Reactor(make(argv[1]), true), true);
  const unsigned threads = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1;
  const int taken = argc > 2 ? 2 : argc - 1;

  (void)std::signal(SIGTERM, end_loop);
  argv[taken] = argv[0];
  ACE_Service_Config::open(argc - taken, argv + taken, ACE_DEFAULT_LOGGER_KEY, false, false, true);
  if (::write(STDERR_FILENO, "is started.\n", 12) != 12)
    return 1;

  if (threads < 2)
    (void)run_loop(nullptr);
  else {
    ACE_Thread_Manager::instance()->spawn_n(threads, run_loop);
    ACE_Thread_Manager::instance()->wait();
  }
  ACE_Service_Config::fini_svcs();
  ACE_Service_Config::close();
  return 0;
}
