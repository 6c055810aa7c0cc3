// This is a TCP echo service, on the loopback interface unless its arguments tell otherwise: whatever a client sends
// comes back. The service is written for a reactor with any number of loop threads: none of its calls blocks a loop
// thread, and a client costs one buffer, however little the client reads.
//
// The reactor owns the event handlers registered with it, by their reference counts. The service may end while loop
// threads are busy with its clients (a hang-up signal reloads the service): a session therefore closes its socket when
// the last reference to the session goes, and only the loop thread that is in the session touches its buffer.

#include "examples/echo/status.h"
#include "examples/parse_number.h"

#include <ace/Event_Handler.h>
#include <ace/Get_Opt.h>
#include <ace/Global_Macros.h>
#include <ace/Guard_T.h>
#include <ace/INET_Addr.h>
#include <ace/Log_Msg.h>
#include <ace/Reactor.h>
#include <ace/SOCK_Acceptor.h>
#include <ace/SOCK_Stream.h>
#include <ace/Service_Object.h>
#include <ace/Thread_Mutex.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <new>
#include <set>
#include <vector>

#include <arpa/inet.h>
#include <sys/socket.h>

enum { DEFAULT_PORT = 7007, BUFFER_SIZE = 16384, ACCEPT_PAUSE_SEC = 1, MAX_PORT = 65535, MAX_DRAIN_SEC = 3600 };

class Session;

/// Accepts clients and knows their sessions.
class Listener : public ACE_Event_Handler
{
public:
  explicit Listener(ACE_Reactor* reactor) : ACE_Event_Handler(reactor)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
  }

  /// Listen on `address`, whose port may be 0 for any free port. Returns 0, or -1 with errno.
  int open(const ACE_INET_Addr& address);

  /// Returns the port that the listener listens on.
  unsigned short port() const;

  /// Stop listening after `delay`; the sessions go on. Returns 0, or -1 with errno when it goes on listening.
  int drain(const ACE_Time_Value& delay);

  /// Listen on `address` again, whether drain() has done its work or not. Returns 0, or -1 with errno. Only while no
  /// loop thread calls the listener.
  int resume(const ACE_INET_Addr& address);

  /// Stop listening and end the sessions. Returns the number of sessions that were there.
  std::size_t stop();

  /// Take `session` off the list of sessions: the reactor has let go of it.
  void forget(Session* session);

  ACE_HANDLE get_handle() const override { return acceptor_.get_handle(); }
  int handle_input(ACE_HANDLE) override;
  int handle_timeout(const ACE_Time_Value&, const void* act) override;

protected:
  ~Listener() override { acceptor_.close(); }

private:
  void start_session(const ACE_SOCK_Stream& peer);
  bool add(Session* session);
  bool is_stopped();
  void pause();
  void stop_listening();

  static constexpr char DRAINED[] = "the time to drain is over"; // what a timer is for
  ACE_SOCK_Acceptor acceptor_;
  std::atomic<bool> listens_{false};
  ACE_Thread_Mutex lock_; // guards the members below; never held in a call to the reactor, which has locks of its own
  std::set<Session*> sessions_;
  bool stopped_ = false;
};

/// The session of one client. The client is either read from or written to: as long as anything is left to send,
/// nothing more is read from it.
class Session : public ACE_Event_Handler
{
public:
  Session(Listener& listener, const ACE_SOCK_Stream& peer)
      : ACE_Event_Handler(listener.reactor()), listener_(listener), listener_holder_(&listener), peer_(peer)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
    listener.add_reference();
  }

  /// Let the reactor forget this session, whatever the session waits for.
  void end() { (void)reactor()->remove_handler(this, ALL_EVENTS_MASK); } // fails when it is forgotten already

  ACE_HANDLE get_handle() const override { return peer_.get_handle(); }
  int handle_input(ACE_HANDLE) override;
  int handle_output(ACE_HANDLE) override;
  int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override;

protected:
  ~Session() override { peer_.close(); }

private:
  void wait_for(ACE_Reactor_Mask mask);

  Listener& listener_;
  const ACE_Event_Handler_var listener_holder_; // keeps the listener alive
  ACE_SOCK_Stream peer_;
  ACE_Reactor_Mask waits_for_ = READ_MASK;
  char buffer_[BUFFER_SIZE];
  std::size_t begin_ = 0; // of the bytes that are left to send
  std::size_t end_ = 0;
};

// ---- A session

int Session::handle_input(ACE_HANDLE handle)
{
  const ssize_t n = ::recv(handle, buffer_, sizeof buffer_, 0);
  if (n < 0 && (errno == EWOULDBLOCK || errno == EINTR))
    return 0;
  if (n <= 0) { // everything that the client has sent has come back already
    end();
    return 0;
  }

  begin_ = 0;
  end_ = static_cast<std::size_t>(n);
  return handle_output(handle);
}

int Session::handle_output(ACE_HANDLE handle)
{
  while (begin_ < end_) {
    const ssize_t n = ::send(handle, buffer_ + begin_, end_ - begin_, MSG_NOSIGNAL);
    if (n >= 0)
      begin_ += static_cast<std::size_t>(n);
    else if (errno == EWOULDBLOCK) {
      wait_for(WRITE_MASK);
      return 0;
    } else if (errno != EINTR) {
      end();
      return 0;
    }
  }

  wait_for(READ_MASK);
  return 0;
}

void Session::wait_for(ACE_Reactor_Mask mask)
{
  if (mask == waits_for_)
    return;

  waits_for_ = mask;
  (void)reactor()->mask_ops(this, mask, ACE_Reactor::SET_MASK); // fails when the session was ended meanwhile
}

int Session::handle_close(ACE_HANDLE, ACE_Reactor_Mask)
{
  listener_.forget(this);
  return 0;
}

// ---- The listener

int Listener::open(const ACE_INET_Addr& address)
{
  // The framework's own queue length is 5: clients that come at once would wait for the kernel to try again.
  if (acceptor_.open(address, 1, PF_INET, SOMAXCONN) == -1 || acceptor_.enable(ACE_NONBLOCK) == -1 ||
      acceptor_.enable(ACE_CLOEXEC) == -1)
    return -1;

  listens_ = true;
  return reactor()->register_handler(this, ACCEPT_MASK);
}

int Listener::drain(const ACE_Time_Value& delay)
{
  return reactor()->schedule_timer(this, DRAINED, delay) == -1 ? -1 : 0;
}

int Listener::resume(const ACE_INET_Addr& address)
{
  (void)reactor()->cancel_timer(this);
  if (listens_)
    return reactor()->schedule_wakeup(this, ACCEPT_MASK); // the timer may have been that of a pause

  acceptor_.close();
  return open(address);
}

// A loop thread may still be about to accept a client, so that the socket stays open. It gives the port back at once,
// to a successor for instance.
void Listener::stop_listening()
{
  (void)reactor()->remove_handler(this, ACCEPT_MASK | DONT_CALL);
  (void)::shutdown(get_handle(), SHUT_RDWR);
  listens_ = false;
}

unsigned short Listener::port() const
{
  ACE_INET_Addr address;
  return acceptor_.get_local_addr(address) == 0 ? address.get_port_number() : 0;
}

int Listener::handle_input(ACE_HANDLE)
{
  ACE_SOCK_Stream peer;
  if (acceptor_.accept(peer) == 0)
    start_session(peer);
  else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
    pause();

  return 0; // another thread was faster, or the client has gone
}

// The client stays in the queue, and the listening socket stays ready: looking again at once would keep a processor
// busy.
void Listener::pause()
{
  ACE_ERROR((LM_WARNING, "Failed to accept a client, errno=%d, %m\n", errno));

  (void)reactor()->cancel_wakeup(this, ACCEPT_MASK);
  if (reactor()->schedule_timer(this, nullptr, ACE_Time_Value(ACCEPT_PAUSE_SEC)) == -1)
    (void)reactor()->schedule_wakeup(this, ACCEPT_MASK);
}

int Listener::handle_timeout(const ACE_Time_Value&, const void* act)
{
  if (act == DRAINED) {
    stop_listening();
    return 0;
  }

  (void)reactor()->schedule_wakeup(this, ACCEPT_MASK); // fails when the service has stopped meanwhile
  return 0;
}

void Listener::start_session(const ACE_SOCK_Stream& peer)
{
  Session* const session = new (std::nothrow) Session(*this, peer);
  if (!session) {
    ACE_SOCK_Stream(peer).close();
    return;
  }

  const ACE_Event_Handler_var holder(session); // this function's reference; the reactor takes one of its own
  if (peer.enable(ACE_NONBLOCK) == -1 || peer.enable(ACE_CLOEXEC) == -1 || !add(session))
    return;

  if (reactor()->register_handler(session, READ_MASK) == -1)
    forget(session);
  else if (is_stopped()) // between the addition and the registration of the session
    session->end();
}

bool Listener::add(Session* session)
{
  const ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  return !stopped_ && sessions_.insert(session).second;
}

void Listener::forget(Session* session)
{
  const ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  sessions_.erase(session);
}

bool Listener::is_stopped()
{
  const ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  return stopped_;
}

std::size_t Listener::stop()
{
  (void)reactor()->cancel_timer(this);
  stop_listening();

  std::vector<ACE_Event_Handler_var> holders;
  std::vector<Session*> sessions;
  {
    const ACE_Guard<ACE_Thread_Mutex> guard(lock_);
    stopped_ = true;
    for (Session* const session : sessions_) {
      session->add_reference();
      holders.emplace_back(session);
      sessions.push_back(session);
    }
  }

  for (Session* const session : sessions)
    session->end();
  return sessions.size();
}

// ---- The service

/// The arguments of the service.
struct Arguments
{
  const char* host = "127.0.0.1";
  unsigned short port = DEFAULT_PORT;
  unsigned drain_sec = 1;
  bool has_status = false;
  unsigned short status_port = 0;
};

/// The configuration file loads this service. Its argument "-a ADDRESS" gives the IPv4 address that the service listens
/// on, 0.0.0.0 for all of the machine; "-p PORT" names the port, 0 for any free port. "-s PORT" names a port that tells
/// whether the service takes new clients: not when it is suspended. "-d SECONDS" later it stops listening, and what it
/// has begun it finishes.
class Echo : public ACE_Service_Object
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;
  int suspend() override;
  int resume() override;
  int fini() override;

private:
  int open_listener(const Arguments& arguments);
  int open_status(const Arguments& arguments);

  ACE_Event_Handler_var listener_holder_; // the service's references
  ACE_Event_Handler_var status_holder_;
  Listener* listener_ = nullptr;
  Status* status_ = nullptr;
  ACE_INET_Addr address_;
  ACE_Time_Value drain_time_;
};

static bool parse_port(const char* text, unsigned short& port)
{
  unsigned value = 0;
  const bool is_valid = parse_number(text, MAX_PORT, value);
  port = static_cast<unsigned short>(value);
  return is_valid;
}

// A name would have to be looked up, which may take long and may find another machine's address.
static bool is_address(const char* text)
{
  in_addr address;
  return inet_pton(AF_INET, text, &address) == 1;
}

static bool parse_argument(int option, const char* text, Arguments& arguments)
{
  switch (option) {
  case 'a':
    arguments.host = text;
    return is_address(text);
  case 'd':
    return parse_number(text, MAX_DRAIN_SEC, arguments.drain_sec);
  case 'p':
    return parse_port(text, arguments.port);
  case 's':
    arguments.has_status = true;
    return parse_port(text, arguments.status_port);
  default:
    return false;
  }
}

static bool parse_arguments(int argc, ACE_TCHAR* argv[], Arguments& arguments)
{
  ACE_Get_Opt opt(argc, argv, "a:d:p:s:", 0);
  for (int c; (c = opt()) != -1;)
    if (!parse_argument(c, opt.opt_arg(), arguments))
      return false;
  return true;
}

int Echo::init(int argc, ACE_TCHAR* argv[])
{
  Arguments arguments;
  if (!parse_arguments(argc, argv, arguments))
    ACE_ERROR_RETURN((LM_ERROR,
                      "Failed to start echo: it takes -a ADDRESS, -p PORT and -s PORT, 0 to 65535, and "
                      "-d SECONDS, 0 to %d\n",
                      MAX_DRAIN_SEC),
                     -1);

  drain_time_ = ACE_Time_Value(static_cast<time_t>(arguments.drain_sec));
  return open_listener(arguments) == -1 ? -1 : open_status(arguments);
}

int Echo::open_listener(const Arguments& arguments)
{
  listener_ = new (std::nothrow) Listener(ACE_Reactor::instance());
  if (!listener_)
    return -1;
  listener_holder_ = listener_;
  if (listener_->open(ACE_INET_Addr(arguments.port, arguments.host)) == -1)
    ACE_ERROR_RETURN((LM_ERROR, "Failed to listen on %C:%d, errno=%d, %m\n", arguments.host, arguments.port, errno),
                     -1);

  address_.set(listener_->port(), arguments.host);
  ACE_DEBUG((LM_INFO, "Echo listens on %C:%d.\n", arguments.host, listener_->port()));
  return 0;
}

// A service that fails to start is not finalised by the framework.
int Echo::open_status(const Arguments& arguments)
{
  if (!arguments.has_status)
    return 0;

  status_ = new (std::nothrow) Status(ACE_Reactor::instance());
  status_holder_ = status_;
  if (status_ && status_->open(ACE_INET_Addr(arguments.status_port, arguments.host)) == 0) {
    ACE_DEBUG((LM_INFO, "Echo tells its status on %C:%d.\n", arguments.host, status_->port()));
    return 0;
  }

  ACE_ERROR(
      (LM_ERROR, "Failed to tell the status at %C:%d, errno=%d, %m\n", arguments.host, arguments.status_port, errno));
  (void)listener_->stop();
  return -1;
}

// The word comes first: until the listener goes, a client that has not heard of it is served like any other.
int Echo::suspend()
{
  if (status_)
    status_->set_ready(false);
  return listener_->drain(drain_time_);
}

int Echo::resume()
{
  if (listener_->resume(address_) == -1)
    ACE_ERROR_RETURN((LM_ERROR, "Failed to listen again, errno=%d, %m\n", errno), -1);
  if (status_)
    status_->set_ready(true);
  return 0;
}

int Echo::fini()
{
  if (status_)
    (void)status_->reactor()->remove_handler(status_, ACE_Event_Handler::ACCEPT_MASK | ACE_Event_Handler::DONT_CALL);
  const std::size_t sessions = listener_->stop();

  ACE_DEBUG((LM_INFO, "Echo has stopped, %u %C connected.\n", static_cast<unsigned>(sessions),
             sessions == 1 ? "client was" : "clients were"));
  return 0;
}

ACE_FACTORY_DEFINE(ACE_Local_Service, Echo)
