// The configuration file puts these two modules together to a stream. At the top, Receiver takes datagrams from the
// loopback interface, in a thread of its own, and passes them down; below it, Printer logs them.
//
// The thread is in the topmost module on purpose. The framework takes a stream apart from the top: the module below is
// still whole when the thread ends, and nobody passes a message on any more when the turn of that module comes.

#include "examples/own_threads.h"
#include "examples/parse_number.h"

#include <ace/Get_Opt.h>
#include <ace/Global_Macros.h>
#include <ace/INET_Addr.h>
#include <ace/Log_Msg.h>
#include <ace/Message_Block.h>
#include <ace/Module.h>
#include <ace/SOCK_Dgram.h>
#include <ace/Service_Object.h>
#include <ace/Stream.h>
#include <ace/Task.h>

#include <cerrno>
#include <new>

using Task = ACE_Task<ACE_MT_SYNCH>;

enum { DEFAULT_PORT = 7009, MAX_PORT = 65535, MAX_LINE = 1500 };

/// The writing side of the upper module. Its argument "-p PORT" names the port, 0 for any free port.
class Receiver : public Task
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;

  /// The framework calls this when it has pushed the module onto its stream.
  int open(void*) override;

  /// A message that somebody else writes to the stream goes down too.
  int put(ACE_Message_Block* message, ACE_Time_Value* timeout) override { return put_next(message, timeout); }

  /// The framework calls this when it takes the module off its stream.
  int module_closed() override;

private:
  void receive();

  ACE_SOCK_Dgram socket_;
  Own_Threads threads_;
};

/// The writing side of the lower module.
class Printer : public Task
{
public:
  int put(ACE_Message_Block* message, ACE_Time_Value*) override;
  int module_closed() override;

private:
  unsigned lines_ = 0; // belongs to the receiver's thread, as long as there is one
};

// ---- The receiver

static bool parse_port(int argc, ACE_TCHAR* argv[], unsigned& port)
{
  ACE_Get_Opt opt(argc, argv, "p:", 0);
  for (int c; (c = opt()) != -1;)
    if (c != 'p' || !parse_number(opt.opt_arg(), MAX_PORT, port))
      return false;
  return true;
}

int Receiver::init(int argc, ACE_TCHAR* argv[])
{
  unsigned port = DEFAULT_PORT;
  if (!parse_port(argc, argv, port))
    ACE_ERROR_RETURN((LM_ERROR, "Failed to start the receiver: it takes -p PORT, 0 to %d\n", MAX_PORT), -1);

  const ACE_INET_Addr address(static_cast<unsigned short>(port), "127.0.0.1");
  if (socket_.open(address) == -1 || socket_.enable(ACE_NONBLOCK) == -1 || socket_.enable(ACE_CLOEXEC) == -1)
    ACE_ERROR_RETURN((LM_ERROR, "Failed to open 127.0.0.1:%u, errno=%d, %m\n", port, errno), -1);
  return 0;
}

int Receiver::open(void*)
{
  ACE_INET_Addr address;
  if (socket_.get_local_addr(address) == -1 || threads_.start(1, [this] { receive(); }) == -1)
    ACE_ERROR_RETURN((LM_ERROR, "Failed to start the receiver, errno=%d, %m\n", errno), -1);

  ACE_DEBUG((LM_INFO, "The receiver takes lines on 127.0.0.1:%d.\n", address.get_port_number()));
  return 0;
}

void Receiver::receive()
{
  while (threads_.wait_for(socket_.get_handle())) {
    char line[MAX_LINE];
    ACE_INET_Addr peer;
    const ssize_t n = socket_.recv(line, sizeof line, peer);
    if (n < 0)
      continue;

    ACE_Message_Block* const message = new (std::nothrow) ACE_Message_Block(static_cast<std::size_t>(n));
    if (!message)
      continue;
    (void)message->copy(line, static_cast<std::size_t>(n)); // the block has room for the line
    if (put_next(message) == -1)
      message->release();
  }
}

int Receiver::module_closed()
{
  threads_.stop();
  socket_.close();

  ACE_DEBUG((LM_INFO, "The receiver has stopped.\n"));
  return 0;
}

// ---- The printer

int Printer::put(ACE_Message_Block* message, ACE_Time_Value*)
{
  int length = static_cast<int>(message->length());
  if (length > 0 && message->rd_ptr()[length - 1] == '\n')
    --length;

  ACE_DEBUG((LM_INFO, "Line %u: %.*C\n", ++lines_, length, message->rd_ptr()));
  message->release();
  return 0;
}

int Printer::module_closed()
{
  ACE_DEBUG((LM_INFO, "The printer has stopped, %u %C.\n", lines_, lines_ == 1 ? "line" : "lines"));
  return 0;
}

// ---- The configuration file loads the stream and its modules

using Module = ACE_Module<ACE_MT_SYNCH>;

// Returns a module that has `writer` for its writing side; its reading side passes on what comes up. The module deletes
// both sides.
static void* make_module(const char* name, Task* writer)
{
  return writer ? new (std::nothrow) Module(name, writer) : nullptr;
}

extern "C" ACE_Local_Service_Export void* _make_Receiver(ACE_Service_Object_Exterminator*)
{
  return make_module("Receiver", new (std::nothrow) Receiver);
}

extern "C" ACE_Local_Service_Export void* _make_Printer(ACE_Service_Object_Exterminator*)
{
  return make_module("Printer", new (std::nothrow) Printer);
}

extern "C" ACE_Local_Service_Export void* _make_Pipeline(ACE_Service_Object_Exterminator*)
{
  return new (std::nothrow) ACE_Stream<ACE_MT_SYNCH>;
}
