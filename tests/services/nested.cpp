// A service that faults in a timer's callback, below an inlined function, as its argument says. Comments mark the lines
// that a back trace must name. Tests build it once more with other code in front of it, which moves the rest.

#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

static volatile int sink;

#ifdef NESTED_REBUILT
[[gnu::noinline, gnu::used]] static void more_code(int depth)
{
  for (int i = 0; i < depth; ++i)
    sink = sink * 7 + i % 5;
}
#endif

namespace nested
{
// Access to a mapped page behind the end of its file fails.
static const volatile char* page_without_file()
{
  char name[] = "/tmp/starter-nested-XXXXXX";
  const int fd = ::mkstemp(name);
  ::unlink(name);
  return static_cast<const volatile char*>(::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0));
}

[[gnu::always_inline]] inline void fault_in_line(const char* how)
{
  if (std::strcmp(how, "11") == 0)
    *reinterpret_cast<volatile int*>(static_cast<std::uintptr_t>(sink)) = 1; // SIGSEGV
  else if (std::strcmp(how, "4") == 0)
    asm volatile("ud2"); // SIGILL
  else if (std::strcmp(how, "8") == 0)
    sink = 7 / sink; // SIGFPE
  else if (std::strcmp(how, "7") == 0)
    sink = *page_without_file(); // SIGBUS
  else if (std::strcmp(how, "6") == 0)
    std::abort(); // SIGABRT
  else if (std::strcmp(how, "14") == 0)
    ::raise(SIGALRM); // SIGALRM
  else if (std::strcmp(how, "24") == 0)
    ::raise(SIGXCPU); // SIGXCPU
  else if (std::strcmp(how, "exception") == 0)
    throw std::runtime_error("nested too deep"); // exception
  else
    std::terminate(); // terminate
}

class Nested : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    how_ = argc > 0 ? argv[0] : "";
    return ACE_Reactor::instance()->schedule_timer(this, nullptr, ACE_Time_Value(0, 1000)) == -1 ? -1 : 0;
  }

  int fini() override
  {
    ACE_Reactor::instance()->cancel_timer(this);
    return 0;
  }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    descend(3); // callback
    return 0;
  }

private:
  [[gnu::noinline]] void descend(int depth)
  {
    if (depth > 0)
      descend(depth - 1); // descend
    else
      fault_in_line(how_.c_str()); // inlined here
    sink = depth;                  // the call above is not the last thing, so that it stays on the stack
  }

  std::string how_;
};
} // namespace nested

using nested::Nested;

ACE_FACTORY_DEFINE(ACE_Local_Service, Nested)
