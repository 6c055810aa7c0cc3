// A service that registers a handler with the reactor, and tells on standard error when the reactor closes the handler.

#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace
{
// Never deleted: the reactor closes it after the service has been finalised.
class Watcher : public ACE_Event_Handler
{
public:
  int open() { return ::pipe2(fds_, O_CLOEXEC); }

  ACE_HANDLE get_handle() const override { return fds_[0]; }

  int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override
  {
    const char text[] = "The handler is closed.\n";
    return ::write(STDERR_FILENO, text, std::strlen(text)) == -1 ? -1 : 0;
  }

private:
  int fds_[2] = {-1, -1};
};

class Closer : public ACE_Service_Object
{
public:
  int init(int, char**) override
  {
    Watcher* const watcher = new Watcher;
    return watcher->open() != 0 ? -1 : ACE_Reactor::instance()->register_handler(watcher, ACE_Event_Handler::READ_MASK);
  }

  int fini() override { return 0; }
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Closer)
