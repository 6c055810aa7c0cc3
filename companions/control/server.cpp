#include "companions/control/server.h"

#include "companions/common/own_thread.h"
#include "companions/control/control_socket.h"
#include "companions/join_until.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum {
  MAX_CONNECTIONS = 64,
  WORK_MSEC = 10,  // between two looks at a command that is under way
  IDLE_MSEC = 500, // between two looks at the time otherwise
  STOP_SEC = 2
};

static std::atomic<bool> is_exiting; // the process leaves, and takes the framework down

// ---- Begin and end, in the main thread

void Server::wake() const
{
  const std::uint64_t once = 1;
  (void)!::write(wake_fd_, &once, sizeof once); // a descriptor that cannot count further is ready already
}

void Server::join()
{
  if (!has_thread_)
    return;

  has_thread_ = false;
  timespec until = {};
  (void)::clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_sec += STOP_SEC;
  if (join_until(thread_, until) != 0)
    (void)pthread_detach(thread_); // its code and this object stay as long as the process
}

int Server::start_thread()
{
  static bool is_told; // at the exit of the process
  if (!is_told)
    is_told = std::atexit([] { is_exiting = true; }) == 0;
  if (wake_fd_ == -1)
    wake_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake_fd_ == -1)
    return -1;

  state_ = ATTACHED;
  if (const int error = make_own_thread(thread_, run, this); error != 0) {
    state_ = STOPPED;
    errno = error;
    return -1;
  }
  has_thread_ = true;
  return 0;
}

int Server::attach(const std::string& path)
{
  int detached = DETACHED;
  const bool goes_on = state_.compare_exchange_strong(detached, ATTACHED);
  if (!goes_on)
    join(); // one that has not been attached in time

  const std::lock_guard<std::mutex> guard(mutex_);
  if (listener_.fd == -1 || listener_.path != path) {
    const int fd = open_control_socket(path);
    if (fd == -1) {
      if (goes_on)
        state_ = DETACHED;
      return -1;
    }
    if (listener_.fd != -1)
      close_control_socket(listener_.fd, listener_.path, listener_.inode);
    listener_ = {fd, path, inode_of(path)};
  }
  if (goes_on) {
    wake();
    return 0;
  }
  if (start_thread() == 0)
    return 0;

  const int error = errno;
  close_control_socket(listener_.fd, listener_.path, listener_.inode);
  listener_ = {};
  errno = error;
  return -1;
}

void Server::detach()
{
  state_ = DETACHED;
  wake();
}

void Server::stop()
{
  state_ = ENDING;
  wake();
  join();
}

// ---- The thread

void* Server::run(void* arg)
{
  (void)pthread_setname_np(pthread_self(), "control"); // cannot fail with so short a name
  static_cast<Server*>(arg)->serve();
  return nullptr;
}

bool Server::is_over()
{
  if (is_exiting || state_ == ENDING)
    return true;

  // Whoever waits for a reload that has ended the service is told about it first.
  int detached = DETACHED;
  return state_ == DETACHED && !view_.is_reloading() && !is_anything_awaited() &&
         state_.compare_exchange_strong(detached, ENDING);
}

bool Server::is_anything_awaited() const
{
  return !orphans_.empty() ||
         std::any_of(connections_.begin(), connections_.end(), [](const Connection& c) { return c.is_busy(); });
}

void Server::accept_clients()
{
  int fd;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    fd = listener_.fd;
    fd = fd == -1 ? -1 : ::accept4(fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  }
  accepts_ = fd != -1 || errno == EAGAIN || errno == ECONNABORTED || errno == EINTR;
  if (fd == -1)
    return; // without a free descriptor, the client waits for a moment

  Connection& connection = connections_.emplace_back(fd, view_);
  if (!is_peer_allowed(fd))
    connection.refuse("Only root and the user of the process may give commands.");
  else if (connections_.size() > MAX_CONNECTIONS)
    connection.refuse("There are too many connections.");
  if (connections_.size() > 2 * MAX_CONNECTIONS)
    connections_.pop_back();
}

void Server::wait_for_events()
{
  std::vector<pollfd> fds = {{wake_fd_, POLLIN, 0}};
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    fds.push_back({accepts_ ? listener_.fd : -1, POLLIN, 0});
  }
  for (const Connection& connection : connections_)
    fds.push_back({connection.fd(), connection.events(), 0});

  const bool is_working =
      is_anything_awaited() || state_ == DETACHED || !view_.knows_wanted() || view_.is_reloading() || !accepts_;
  (void)::poll(fds.data(), fds.size(), is_working ? WORK_MSEC : IDLE_MSEC);
  accepts_ = true;

  if ((fds[0].revents & POLLIN) != 0) {
    std::uint64_t count;
    (void)!::read(wake_fd_, &count, sizeof count);
  }
  std::size_t n = 2;
  for (Connection& connection : connections_)
    connection.go_on(fds[n++].revents);
  if ((fds[1].revents & POLLIN) != 0)
    accept_clients();
}

void Server::work_on_jobs()
{
  for (auto connection = connections_.begin(); connection != connections_.end();)
    if (connection->is_over()) {
      if (std::unique_ptr<Job> job = connection->take_job())
        orphans_.push_back(std::move(job));
      connection = connections_.erase(connection);
    } else
      ++connection;

  orphans_.erase(std::remove_if(orphans_.begin(), orphans_.end(),
                                [](const std::unique_ptr<Job>& job) {
                                  nlohmann::json answer;
                                  return job->go_on(answer);
                                }),
                 orphans_.end());
}

void Server::close_all()
{
  for (Connection& connection : connections_)
    if (connection.is_busy())
      connection.refuse("The process ends.");
  connections_.clear();
  orphans_.clear();

  const std::lock_guard<std::mutex> guard(mutex_);
  if (listener_.fd != -1)
    close_control_socket(listener_.fd, listener_.path, listener_.inode);
  listener_ = {};
}

void Server::serve()
{
  while (!is_over()) {
    wait_for_events();
    work_on_jobs();
    if (!view_.knows_wanted() || view_.is_reloading())
      (void)view_.refresh(); // the configuration is read as soon as it is loaded
  }
  if (!is_exiting)
    close_all();
}
