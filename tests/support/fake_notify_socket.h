#ifndef TESTS_SUPPORT_FAKE_NOTIFY_SOCKET_H
#define TESTS_SUPPORT_FAKE_NOTIFY_SOCKET_H

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// A socket that takes notifications in place of systemd. The system lets few of them wait in it, perhaps ten.
class Fake_Notify_Socket
{
public:
  /// Listen at `address`, a path or, with '@' before it, an abstract name. A thread fetches the notifications at once,
  /// unless `is_busy`: then they wait for serve().
  explicit Fake_Notify_Socket(const std::string& address, bool is_busy = false);
  ~Fake_Notify_Socket();

  Fake_Notify_Socket(const Fake_Notify_Socket&) = delete;
  Fake_Notify_Socket& operator=(const Fake_Notify_Socket&) = delete;

  /// Be busy no longer.
  void serve();

  /// All notifications by now, in order, such as "READY=1\n".
  std::vector<std::string> messages();

  /// The names of those of messages() that tell the state: RELOADING, READY or STOPPING.
  std::vector<std::string> states();

  /// Those of messages() that begin with `start`, without it and without the last newline.
  std::vector<std::string> values_of(const std::string& start);

  /// Wait until there are `count` messages that begin with `start`. False when a minute passes before that.
  bool wait_for(const std::string& start, std::size_t count = 1);

private:
  void fetch();

  std::string address_;
  int fd_ = -1;
  std::mutex mutex_; ///< guards messages_
  std::vector<std::string> messages_;
  std::atomic<bool> is_ended_{false};
  std::thread reader_;
};

#endif // TESTS_SUPPORT_FAKE_NOTIFY_SOCKET_H
