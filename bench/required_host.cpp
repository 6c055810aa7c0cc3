// This is the least that a host can do that keeps what the program promises between its start and its event loop: the
// close-on-exec probe, which starts a shell, as the support library has it run before main; systemd's client library;
// the service configurator; and a loop that a termination signal ends in order. It logs nothing. It is built twice:
// with the support library, which a program links whole, and without it, for what the client library alone costs.

#include <ace/Reactor.h>
#include <ace/Service_Config.h>

#include <csignal>

#include <dlfcn.h>
#include <unistd.h>

static void end_loop(int)
{
  (void)ACE_Reactor::instance()->end_reactor_event_loop();
}

// Asks the client library whether systemd runs, as a notifier has to.
static void ask_client_library()
{
  using sd_booted_t = int (*)();

  void* const library = dlopen("libsystemd.so.0", RTLD_LAZY);
  if (!library)
    return;
  if (const sd_booted_t sd_booted = reinterpret_cast<sd_booted_t>(dlsym(library, "sd_booted")))
    (void)sd_booted();
  (void)dlclose(library);
}

int main(int argc, char** argv)
{
  (void)std::signal(SIGTERM, end_loop);
  ACE_Service_Config::open(argc, argv, ACE_DEFAULT_LOGGER_KEY, false, false, true);
  ask_client_library();
  if (::write(STDERR_FILENO, "is started.\n", 12) != 12)
    return 1;

  ACE_Reactor::instance()->run_reactor_event_loop();
  ACE_Service_Config::fini_svcs();
  ACE_Service_Config::close();
  return 0;
}
