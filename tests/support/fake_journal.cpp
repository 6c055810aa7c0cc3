#include "tests/support/fake_journal.h"

#include "tests/support/wait_until.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include <endian.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

Fake_Journal::Fake_Journal(const std::string& path, bool is_busy)
    : path_(path), fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  if (fd_ == -1 || ::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::chmod(path.c_str(), 0666) != 0)
    throw std::runtime_error("no socket at " + path);

  if (!is_busy)
    reader_ = std::thread([this] {
      while (!is_ended_) {
        pollfd fd{fd_, POLLIN, 0};
        if (::poll(&fd, 1, 20) == 1)
          fetch();
      }
    });
}

Fake_Journal::~Fake_Journal()
{
  is_ended_ = true;
  if (reader_.joinable())
    reader_.join();
  ::close(fd_);
  ::unlink(path_.c_str());
}

Entry_Fields parse_entry(const std::string& message)
{
  Entry_Fields fields;
  std::size_t at = 0;
  while (at < message.size()) {
    const std::size_t end_of_name = message.find_first_of("=\n", at);
    if (end_of_name == std::string::npos) {
      ADD_FAILURE() << "no field: " << message;
      break;
    }
    const std::string name = message.substr(at, end_of_name - at);
    std::size_t begin = end_of_name + 1;
    std::size_t end = message.find('\n', begin);
    if (message[end_of_name] == '\n') {
      std::uint64_t length = 0;
      std::memcpy(&length, message.data() + begin, sizeof length);
      begin += sizeof length;
      end = begin + le64toh(length);
    }
    if (end >= message.size() || message[end] != '\n') {
      ADD_FAILURE() << "no end: " << name;
      break;
    }
    EXPECT_TRUE(fields.emplace(name, message.substr(begin, end - begin)).second) << "twice: " << name;
    at = end + 1;
  }
  return fields;
}

// The content of the file whose descriptor came with a message, -1 if there was none.
static int descriptor_of(msghdr& message)
{
  const cmsghdr* const header = CMSG_FIRSTHDR(&message);
  int fd = -1;
  if (header && header->cmsg_type == SCM_RIGHTS)
    std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
  return fd;
}

static std::string read_sealed(int fd)
{
  EXPECT_EQ(F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE, ::fcntl(fd, F_GET_SEALS));
  struct stat file;
  EXPECT_EQ(0, ::fstat(fd, &file));
  std::string content(static_cast<std::size_t>(file.st_size), '\0');
  EXPECT_EQ(file.st_size, ::pread(fd, content.data(), content.size(), 0));
  ::close(fd);
  return content;
}

void Fake_Journal::fetch()
{
  const std::lock_guard<std::mutex> guard(mutex_);
  static char buffer[1 << 20];
  for (;;) {
    iovec part{buffer, sizeof buffer};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t n = ::recvmsg(fd_, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (n < 0)
      return;

    const int fd = descriptor_of(message);
    files_ += fd != -1;
    EXPECT_EQ(0, message.msg_flags & MSG_TRUNC);
    entries_.push_back(parse_entry(fd != -1 ? read_sealed(fd) : std::string(buffer, static_cast<std::size_t>(n))));
  }
}

std::vector<Entry_Fields> Fake_Journal::entries()
{
  fetch();
  const std::lock_guard<std::mutex> guard(mutex_);
  return entries_;
}

std::vector<Entry_Fields> Fake_Journal::entries_with(const std::string& start)
{
  std::vector<Entry_Fields> found;
  for (const Entry_Fields& fields : entries())
    if (const auto message = fields.find("MESSAGE");
        message != fields.end() && message->second.compare(0, start.size(), start) == 0)
      found.push_back(fields);
  return found;
}

bool Fake_Journal::wait_for(const std::string& start, unsigned count)
{
  return wait_until([&] { return entries_with(start).size() >= count; });
}

unsigned long Fake_Journal::lost()
{
  unsigned long sum = 0;
  for (const Entry_Fields& fields : entries())
    if (const auto lost = fields.find("STARTER_LOST"); lost != fields.end())
      sum += std::stoul(lost->second);
  return sum;
}

long scribe_number(const std::string& message)
{
  unsigned number = 0;
  char dot = '\0';
  return std::sscanf(message.c_str(), "number %u%c", &number, &dot) == 2 && dot == '.' ? static_cast<long>(number) : -1;
}
