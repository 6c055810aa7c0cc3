// This service has threads of its own, for work that would block a loop thread: each thread waits for a datagram on the
// loopback interface and sends it back in capitals. The reactor has no part in this. The threads share nothing but a
// socket and a counter, so there is no lock that a signal handler could find taken.

#include "examples/own_threads.h"
#include "examples/parse_number.h"

#include <ace/Get_Opt.h>
#include <ace/Global_Macros.h>
#include <ace/INET_Addr.h>
#include <ace/Log_Msg.h>
#include <ace/SOCK_Dgram.h>
#include <ace/Service_Object.h>

#include <atomic>
#include <cctype>
#include <cerrno>

enum { DEFAULT_PORT = 7008, MAX_PORT = 65535, DEFAULT_THREADS = 2, MAX_THREADS = 64 };

/// The configuration file loads this service. Its arguments are "-p PORT", 0 for any free port, and "-t THREADS".
class Active : public ACE_Service_Object
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;
  int fini() override;

private:
  void serve();

  ACE_SOCK_Dgram socket_;
  std::atomic<unsigned> answered_{0};
  Own_Threads threads_;
};

// Each thread runs this function. A datagram wakes all of the threads, and one of them gets it.
void Active::serve()
{
  while (threads_.wait_for(socket_.get_handle())) {
    char text[1500];
    ACE_INET_Addr peer;
    const ssize_t n = socket_.recv(text, sizeof text, peer);
    if (n < 0)
      continue;

    for (char* c = text; c != text + n; ++c)
      *c = static_cast<char>(std::toupper(static_cast<unsigned char>(*c)));
    if (socket_.send(text, static_cast<std::size_t>(n), peer) == n)
      ++answered_;
  }
}

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

  ACE_INET_Addr address(static_cast<unsigned short>(port), "127.0.0.1");
  if (socket_.open(address) == -1 || socket_.enable(ACE_NONBLOCK) == -1 || socket_.enable(ACE_CLOEXEC) == -1 ||
      socket_.get_local_addr(address) == -1)
    ACE_ERROR_RETURN((LM_ERROR, "Failed to open 127.0.0.1:%u, errno=%d, %m\n", port, errno), -1);
  if (threads_.start(threads, [this] { serve(); }) == -1)
    ACE_ERROR_RETURN((LM_ERROR, "Failed to start %u threads, errno=%d, %m\n", threads, errno), -1);

  ACE_DEBUG((LM_INFO, "Active answers on 127.0.0.1:%d with %u threads.\n", address.get_port_number(), threads));
  return 0;
}

int Active::fini()
{
  threads_.stop();
  socket_.close();

  const unsigned answered = answered_;
  ACE_DEBUG(
      (LM_INFO, "Active has stopped, %u %C answered.\n", answered, answered == 1 ? "datagram was" : "datagrams were"));
  return 0;
}

ACE_FACTORY_DEFINE(ACE_Local_Service, Active)
