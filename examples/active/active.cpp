// This service has threads of its own, for work that would block a loop thread. A callback of the reactor takes a
// datagram from the loopback interface, hands it over to the threads and acknowledges it with "taken". A thread does
// the work, which is to send the datagram back in capitals.
//
// An acknowledgement is a promise, and a hang-up may end the service at any moment. With a pool of loop threads, a
// callback may still be running when fini returns, and it would queue what no thread collects any more. Therefore fini
// closes the queue under its lock and waits until the threads have emptied it; a callback that comes too late finds the
// queue closed and acknowledges nothing.

#include "examples/hand_over.h"
#include "examples/own_threads.h"
#include "examples/parse_number.h"

#include <ace/Event_Handler.h>
#include <ace/Get_Opt.h>
#include <ace/Global_Macros.h>
#include <ace/INET_Addr.h>
#include <ace/Log_Msg.h>
#include <ace/Reactor.h>
#include <ace/SOCK_Dgram.h>
#include <ace/Service_Object.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <new>
#include <string>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

enum { DEFAULT_PORT = 7008, MAX_PORT = 65535, DEFAULT_THREADS = 2, MAX_THREADS = 64, MAX_WAITING = 1000 };

/// A datagram that has been taken, and its sender.
struct Job
{
  std::string text;
  ACE_INET_Addr peer;
};

/// Takes datagrams. It has all that its callbacks touch, as a callback may outlive the service.
class Receiver : public ACE_Event_Handler
{
public:
  explicit Receiver(ACE_Reactor* reactor) : ACE_Event_Handler(reactor)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
  }

  /// Open `port` of the loopback interface, 0 for any free port. Returns 0, or -1 with errno.
  int open(unsigned port);

  /// Let callbacks take datagrams. Returns 0, or -1 with errno.
  int start() { return reactor()->register_handler(this, READ_MASK); }

  /// Take no more datagrams. Those that have been taken still wait for their threads.
  void stop();

  /// Give the port back, when the threads are gone.
  void close_port();

  /// Returns the port.
  unsigned short port() const;

  /// The service's own threads run this function, until stop() has been called and all datagrams have been worked on.
  void work();

  unsigned answered() const { return answered_; }

  ACE_HANDLE get_handle() const override { return socket_.get_handle(); }
  int handle_input(ACE_HANDLE) override;

protected:
  ~Receiver() override { socket_.close(); }

private:
  ACE_SOCK_Dgram socket_;
  Hand_Over<Job> jobs_{MAX_WAITING};
  std::atomic<unsigned> answered_{0};
};

// ---- The callback

// A call takes one datagram and is over in a moment. A single loop would interrupt a callback after a second, perhaps
// while it holds the lock of the queue, which fini needs.
int Receiver::handle_input(ACE_HANDLE)
{
  char text[1500];
  Job job;
  const ssize_t n = socket_.recv(text, sizeof text, job.peer);
  if (n < 0)
    return 0; // another thread was faster

  job.text.assign(text, static_cast<std::size_t>(n));
  const ACE_INET_Addr peer = job.peer;
  // Without an acknowledgement the client sends its datagram again, to the next service.
  (void)jobs_.put(std::move(job), [&] { (void)socket_.send("taken\n", 6, peer); });
  return 0;
}

// ---- The threads

void Receiver::work()
{
  for (Job job; jobs_.take(job);) {
    for (char& c : job.text)
      c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (socket_.send(job.text.data(), job.text.size(), job.peer) == static_cast<ssize_t>(job.text.size()))
      ++answered_;
  }
}

// ---- Beginning and end

int Receiver::open(unsigned port)
{
  const ACE_INET_Addr address(static_cast<unsigned short>(port), "127.0.0.1");
  if (socket_.open(address) == -1 || socket_.enable(ACE_NONBLOCK) == -1 || socket_.enable(ACE_CLOEXEC) == -1)
    return -1;
  return 0;
}

unsigned short Receiver::port() const
{
  ACE_INET_Addr address;
  return socket_.get_local_addr(address) == 0 ? address.get_port_number() : 0;
}

void Receiver::stop()
{
  (void)reactor()->remove_handler(this, READ_MASK | DONT_CALL); // a callback that has begun goes on
  jobs_.close();
}

// The descriptor stays open until the last callback is gone: its number must not become that of another event handler
// meanwhile. Something else takes the place of the socket, so that a successor can open the port at once.
void Receiver::close_port()
{
  const int nothing = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (nothing == -1)
    return;
  (void)::dup3(nothing, get_handle(), O_CLOEXEC);
  ::close(nothing);
}

// ---- The service

/// The configuration file loads this service. Its arguments are "-p PORT", 0 for any free port, and "-t THREADS".
class Active : public ACE_Service_Object
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;
  int fini() override;

private:
  ACE_Event_Handler_var holder_; // the service's reference to the receiver
  Receiver* receiver_ = nullptr;
  Own_Threads threads_;
};

static bool parse_arguments(int argc, ACE_TCHAR* argv[], unsigned& port, unsigned& threads)
{
  ACE_Get_Opt opt(argc, argv, "p:t:", 0);
  for (int c; (c = opt()) != -1;) {
    const bool is_good = (c == 'p' && parse_number(opt.opt_arg(), MAX_PORT, port)) ||
                         (c == 't' && parse_number(opt.opt_arg(), MAX_THREADS, threads) && threads > 0);
    if (!is_good)
      return false;
  }
  return true;
}

int Active::init(int argc, ACE_TCHAR* argv[])
{
  unsigned port = DEFAULT_PORT;
  unsigned threads = DEFAULT_THREADS;
  if (!parse_arguments(argc, argv, port, threads))
    ACE_ERROR_RETURN((LM_ERROR, "Failed to start active: it takes -p PORT, 0 to %d, and -t THREADS, 1 to %d\n",
                      MAX_PORT, MAX_THREADS),
                     -1);

  receiver_ = new (std::nothrow) Receiver(ACE_Reactor::instance());
  if (!receiver_)
    return -1;
  holder_ = receiver_;
  if (receiver_->open(port) == -1)
    ACE_ERROR_RETURN((LM_ERROR, "Failed to open 127.0.0.1:%u, errno=%d, %m\n", port, errno), -1);
  if (threads_.start(
          threads, [this] { receiver_->work(); }, [this] { receiver_->stop(); }) == -1)
    ACE_ERROR_RETURN((LM_ERROR, "Failed to start %u threads, errno=%d, %m\n", threads, errno), -1);
  if (receiver_->start() == -1)
    ACE_ERROR_RETURN((LM_ERROR, "Failed to wait for datagrams, errno=%d, %m\n", errno), -1);

  ACE_DEBUG((LM_INFO, "Active answers on 127.0.0.1:%d with %u threads.\n", receiver_->port(), threads));
  return 0;
}

int Active::fini()
{
  threads_.stop(); // stops the receiver, and waits until the threads have done all that was acknowledged
  receiver_->close_port();

  const unsigned answered = receiver_->answered();
  ACE_DEBUG(
      (LM_INFO, "Active has stopped, %u %C answered.\n", answered, answered == 1 ? "datagram was" : "datagrams were"));
  return 0;
}

ACE_FACTORY_DEFINE(ACE_Local_Service, Active)
