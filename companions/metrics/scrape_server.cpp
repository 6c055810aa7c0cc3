#include "companions/metrics/scrape_server.h"

#include "companions/common/own_thread.h"
#include "companions/join_until.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <new>

#include <sys/eventfd.h>
#include <unistd.h>

static long now_msec()
{
  using namespace std::chrono;
  return static_cast<long>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

// ---- The thread's life

void* Scrape_Server::run(void* arg)
{
  static_cast<Scrape_Server*>(arg)->serve();
  return nullptr;
}

Scrape_Server::~Scrape_Server()
{
  if (wake_fd_ != -1)
    (void)::close(wake_fd_);
}

int Scrape_Server::start(Listener& listener)
{
  wake_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake_fd_ == -1)
    return -1;
  listener_.take_over(listener);
  address_ = listener_.address();

  if (const int error = make_own_thread(thread_, run, this); error != 0) {
    listener_.close();
    errno = error;
    return -1;
  }
  (void)pthread_setname_np(thread_, "metrics"); // the name is for those who look at the process
  return 0;
}

bool Scrape_Server::stop()
{
  is_ended_ = true;
  const std::uint64_t one = 1;
  (void)!::write(wake_fd_, &one, sizeof one); // cannot fail with so few writes

  timespec until{};
  (void)::clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_sec += STOP_SEC;
  if (join_until(thread_, until) == 0)
    return true;
  (void)pthread_detach(thread_);
  return false;
}

// ---- In the thread

void Scrape_Server::serve()
{
  while (!is_ended_)
    try {
      wait();
      serve_clients();
      accept_clients();
    } catch (const std::bad_alloc&) {
      if (!connections_.empty())
        connections_.pop_front(); // a client more or less, until there is memory again
    }
  connections_.clear();
  listener_.close();
}

// Until something can be done, or a client has had its time.
void Scrape_Server::wait()
{
  const long now = now_msec();
  long until = -1;
  waits_.clear();
  waits_.push_back({wake_fd_, POLLIN, 0});
  waits_.push_back({listener_.fd(), now >= accept_at_msec_ ? short{POLLIN} : short{0}, 0});
  if (now < accept_at_msec_)
    until = accept_at_msec_;
  for (const Connection& connection : connections_)
    waits_.push_back({connection.fd(), connection.events(), 0});
  if (!connections_.empty() && (until == -1 || connections_.front().deadline_msec() < until))
    until = connections_.front().deadline_msec();

  const long msec = until == -1 ? -1 : until > now ? until - now : 0;
  if (::poll(waits_.data(), waits_.size(), static_cast<int>(msec)) <= 0)
    for (pollfd& entry : waits_)
      entry.revents = 0;
}

void Scrape_Server::serve_clients()
{
  const long now = now_msec();
  std::size_t place = 2;
  for (auto i = connections_.begin(); i != connections_.end(); ++place) {
    const bool is_ready = waits_[place].revents != 0;
    const bool stays = now < i->deadline_msec() && (!is_ready || i->go_on(metrics_));
    i = stays ? std::next(i) : connections_.erase(i);
  }
}

// A client that comes sends its request at once, as a rule: those that are put out here have had their chance.
void Scrape_Server::accept_clients()
{
  if (waits_[1].revents == 0)
    return;

  for (int n = 0; n < MAX_CONNECTIONS; ++n) {
    const int fd = listener_.accept();
    if (fd == -1) {
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
        accept_at_msec_ = now_msec() + PAUSE_MSEC; // the client would be there again at once
      return;
    }
    if (connections_.size() == MAX_CONNECTIONS)
      connections_.pop_front();
    connections_.emplace_back(fd, now_msec() + CLIENT_MSEC);
  }
}
