// The services that hosts load under measurement: one that does nothing, one that reports, one that echoes, one with
// ten thousand timers, and one that sends keep-alives.

#include "bench/figures.h"
#include "bench/notify.h"

#include <ace/Acceptor.h>
#include <ace/INET_Addr.h>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_sys_time.h>
#include <ace/Reactor.h>
#include <ace/SOCK_Acceptor.h>
#include <ace/Service_Object.h>
#include <ace/Svc_Handler.h>
#include <ace/svc_export.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include <unistd.h>

struct Silent : ACE_Service_Object
{
  int init(int, char**) override { return 0; }
  int fini() override { return 0; }
};
ACE_FACTORY_DEFINE(ACE_Local_Service, Silent)

// Reports from the event loop, so that nobody ends a host that does not expect it yet.
struct Reporter : Silent
{
  int init(int, char**) override
  {
    return ACE_Reactor::instance()->schedule_timer(this, nullptr, ACE_Time_Value::zero) == -1 ? -1 : 0;
  }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    return ::write(STDERR_FILENO, "is started.\n", 12) == 12 ? 0 : -1;
  }
};
ACE_FACTORY_DEFINE(ACE_Local_Service, Reporter)

// A connection. Its references are counted, so that a thread of a pool may remove it while another one calls it.
class Echoing : public ACE_Svc_Handler<ACE_SOCK_STREAM, ACE_NULL_SYNCH>
{
public:
  int open(void*) override
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
    const int result = ACE_Reactor::instance()->register_handler(this, READ_MASK);
    remove_reference(); // the reactor has its own
    return result;
  }

  int handle_input(ACE_HANDLE) override
  {
    char buf[4096];
    const ssize_t n = peer().recv(buf, sizeof buf);
    if (n <= 0)
      return n < 0 && errno == EWOULDBLOCK ? 0 : -1;
    return peer().send_n(buf, static_cast<std::size_t>(n)) == n ? 0 : -1;
  }

  int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override { return 0; } // the last reference deletes it
};

class Echo : public ACE_Service_Object
{
public:
  // The port comes in the environment, because a command line loses the quotes of an argument.
  int init(int, char**) override
  {
    const char* const port = std::getenv("ECHO_PORT");
    return acceptor_.open(ACE_INET_Addr(static_cast<u_short>(port ? std::atoi(port) : 0), "127.0.0.1"));
  }

  int fini() override { return acceptor_.close(); }

private:
  ACE_Acceptor<Echoing, ACE_SOCK_ACCEPTOR> acceptor_;
};
ACE_FACTORY_DEFINE(ACE_Local_Service, Echo)

// Ten thousand timers that expire within a second, at times that a seed decides. When the last one has expired, the
// service writes how late they were.
class Timers : public ACE_Service_Object
{
public:
  enum { COUNT = 10000, USEC = 1000000 };

  int init(int, char**) override
  {
    std::mt19937 random(20240229);
    std::uniform_int_distribution<int> usec(0, USEC);
    late_usec_.resize(COUNT);
    base_ = ACE_OS::gettimeofday();
    due_.resize(COUNT);
    for (std::size_t n = 0; n < COUNT; ++n) {
      due_[n] = ACE_Time_Value(1, usec(random));
      if (ACE_Reactor::instance()->schedule_timer(this, &due_[n], base_ + due_[n] - ACE_OS::gettimeofday()) == -1)
        return -1;
    }
    return 0;
  }

  int fini() override { return 0; }

  int handle_timeout(const ACE_Time_Value&, const void* due) override
  {
    const ACE_Time_Value late = ACE_OS::gettimeofday() - base_ - *static_cast<const ACE_Time_Value*>(due);
    const std::size_t n = expired_++;
    late_usec_[n] = 1e6 * static_cast<double>(late.sec()) + static_cast<double>(late.usec());
    if (++recorded_ == COUNT)
      std::fprintf(stderr, "late %.0f %.0f %.0f end\n", quantile(late_usec_, 0.5), quantile(late_usec_, 0.99),
                   quantile(late_usec_, 1));
    return 0;
  }

private:
  ACE_Time_Value base_;
  std::vector<ACE_Time_Value> due_; // since the base
  std::vector<double> late_usec_;
  std::atomic<std::size_t> expired_{0};
  std::atomic<std::size_t> recorded_{0};
};
ACE_FACTORY_DEFINE(ACE_Local_Service, Timers)

// Sends a keep-alive each second, as the program does it for a watchdog. A bare host with this service is compared with
// the program.
struct Keeper : Silent
{
  int init(int, char**) override
  {
    const ACE_Time_Value second(1);
    notify(KEEP_ALIVE_BASE);
    return ACE_Reactor::instance()->schedule_timer(this, nullptr, second, second) == -1 ? -1 : 0;
  }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    notify("WATCHDOG=1\n");
    return 0;
  }
};
ACE_FACTORY_DEFINE(ACE_Local_Service, Keeper)
