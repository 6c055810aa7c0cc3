// A service that faults in a loop thread, shortly after it was loaded, in the way that its argument names.

#include "tests/support/no_memory.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_string.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include <malloc.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

// A test looks for this frame in a back trace. Optimisation could rename or remove it.
extern "C" __attribute__((visibility("default"), optimize(0))) void crash_here(const char* how)
{
  volatile int zero = 0;

  if (ACE_OS::strcmp(how, "null") == 0)
    *reinterpret_cast<volatile int*>(static_cast<volatile char*>(nullptr) + zero) = 1;
  else if (ACE_OS::strcmp(how, "page") == 0) // no sanitizer sees this one coming
    zero = *static_cast<volatile char*>(::mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  else if (ACE_OS::strcmp(how, "division") == 0)
    zero = 7 / zero;
  else if (ACE_OS::strcmp(how, "instruction") == 0)
    asm volatile("ud2");
  else if (ACE_OS::strcmp(how, "bus") == 0) {
    // Access to a mapped page behind the end of its file fails.
    char name[] = "/tmp/starter-crash-XXXXXX";
    const int fd = ::mkstemp(name);
    ::unlink(name);
    volatile char* const page = static_cast<char*>(::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0));
    zero = page[0];
  } else if (ACE_OS::strcmp(how, "abort") == 0)
    std::abort();
  else if (ACE_OS::strcmp(how, "alarm") == 0)
    ::raise(SIGALRM);
  else if (ACE_OS::strcmp(how, "cpu") == 0)
    ::raise(SIGXCPU);
  else if (ACE_OS::strcmp(how, "memory") == 0) {
    take_all_memory();
    crash_here("null");
  } else if (ACE_OS::strcmp(how, "log") == 0) {
    ACE_Log_Msg::instance()->acquire(); // as a thread does while it gets a log of its own
    crash_here("heap");
  } else if (ACE_OS::strcmp(how, "heap") == 0) {
    // The free rest of the heap follows the youngest large block. This overwrites the size of the rest. The C library
    // notices that when it takes the next block, while it holds the lock of the allocator, and aborts.
    char* const block = static_cast<char*>(std::malloc(100000));
    const std::size_t size = ::malloc_usable_size(block);
    std::memset(block + size, 0xff, sizeof(std::size_t));
    void* volatile next = std::malloc(100000);
    std::free(next);
  }
}

namespace
{
class Crash : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    how_ = argc > 0 ? argv[0] : "null";
    ACE_Reactor* const r = ACE_Reactor::instance();
    return r->schedule_timer(this, nullptr, ACE_Time_Value(0, 1000)) == -1 ? -1 : 0;
  }

  int fini() override
  {
    ACE_Reactor::instance()->cancel_timer(this);
    return 0;
  }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    crash_here(how_.c_str());
    return 0;
  }

private:
  std::string how_;
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Crash)
