#ifndef EXAMPLES_ECHO_STATUS_H
#define EXAMPLES_ECHO_STATUS_H

#include <ace/Event_Handler.h>
#include <ace/INET_Addr.h>
#include <ace/Reactor.h>
#include <ace/SOCK_Acceptor.h>
#include <ace/SOCK_Stream.h>

#include <atomic>
#include <cstring>

#include <sys/socket.h>

/// Tells whoever connects to its port in one line whether the service takes new clients, and closes the connection.
/// These are the words of the agent check of haproxy, which sends a server no new clients once the server says "drain".
class Status : public ACE_Event_Handler
{
public:
  explicit Status(ACE_Reactor* reactor) : ACE_Event_Handler(reactor)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
  }

  /// Answer at `address`. Returns 0, or -1 with errno. Stop with `reactor()->remove_handler(status, ACCEPT_MASK |
  /// DONT_CALL)`; the last reference closes the port.
  int open(const ACE_INET_Addr& address)
  {
    if (acceptor_.open(address, 1) == -1 || acceptor_.enable(ACE_NONBLOCK) == -1 || acceptor_.enable(ACE_CLOEXEC) == -1)
      return -1;
    return reactor()->register_handler(this, ACCEPT_MASK);
  }

  /// Returns the port that answers, 0 when that fails.
  unsigned short port() const
  {
    ACE_INET_Addr address;
    return acceptor_.get_local_addr(address) == 0 ? address.get_port_number() : 0;
  }

  /// Say from now on whether the service takes new clients. Any thread.
  void set_ready(bool is_ready) { is_ready_ = is_ready; }

  ACE_HANDLE get_handle() const override { return acceptor_.get_handle(); }

  int handle_input(ACE_HANDLE) override
  {
    ACE_SOCK_Stream peer;
    if (acceptor_.accept(peer) == 0) {
      const char* const word = is_ready_ ? "up ready\n" : "drain\n";
      (void)::send(peer.get_handle(), word, std::strlen(word), MSG_NOSIGNAL | MSG_DONTWAIT); // it fits, or nobody waits
      peer.close();
    }
    return 0;
  }

protected:
  ~Status() override { acceptor_.close(); }

private:
  ACE_SOCK_Acceptor acceptor_;
  std::atomic<bool> is_ready_{true};
};

#endif // EXAMPLES_ECHO_STATUS_H
