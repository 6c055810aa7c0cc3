#include "companions/journal/journal_socket.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// The socket holds so many bytes that the journal has not fetched yet, or what the system allows.
enum { SEND_BUFFER_SIZE = 8 << 20 };

int Journal_Socket::open(const char* path)
{
  const std::size_t length = std::strlen(path);
  if (length >= sizeof address_.sun_path) {
    errno = ENAMETOOLONG;
    return -1;
  }

  fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd_ == -1)
    return -1;
  const int size = SEND_BUFFER_SIZE;
  (void)::setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &size, sizeof size); // without it, less is held

  address_.sun_family = AF_UNIX;
  std::memcpy(address_.sun_path, path, length + 1);
  return 0;
}

void Journal_Socket::close()
{
  if (fd_ != -1)
    (void)::close(fd_);
  fd_ = -1;
}

// The address goes with each message: a journal that starts anew may listen on a new socket at the same path.
bool Journal_Socket::send_message(msghdr& message) const
{
  message.msg_name = const_cast<sockaddr_un*>(&address_); // nobody writes through it
  message.msg_namelen = sizeof address_;

  ssize_t n;
  do
    n = ::sendmsg(fd_, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
  while (n == -1 && errno == EINTR);
  return n != -1;
}

// A message that passes the descriptor `fd` to the journal.
class Descriptor_Message
{
public:
  explicit Descriptor_Message(int fd)
  {
    message_.msg_control = control_;
    message_.msg_controllen = sizeof control_;
    cmsghdr* const header = CMSG_FIRSTHDR(&message_);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof fd);
    std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
  }

  msghdr& get() { return message_; }

private:
  alignas(cmsghdr) char control_[CMSG_SPACE(sizeof(int))] = {};
  msghdr message_{};
};

// The journal reads only files that nobody can change any more.
static bool fill_and_seal(int fd, Journal_Entry& entry)
{
  return ::writev(fd, entry.parts(), static_cast<int>(entry.count())) == static_cast<ssize_t>(entry.size()) &&
         ::fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) == 0;
}

bool Journal_Socket::send_file(Journal_Entry& entry) const
{
  const int fd = ::memfd_create("journal-entry", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (fd == -1)
    return false;

  const bool is_sent = fill_and_seal(fd, entry) && send_message(Descriptor_Message(fd).get());
  (void)::close(fd);
  return is_sent;
}

bool Journal_Socket::send(Journal_Entry& entry) const
{
  msghdr message{};
  message.msg_iov = entry.parts();
  message.msg_iovlen = entry.count();
  if (send_message(message))
    return true;

  // An entry that is too large for a datagram is passed in a file in memory.
  return (errno == EMSGSIZE || errno == ENOBUFS) && send_file(entry);
}
