#ifndef COMPANIONS_CONTROL_SERVER_H
#define COMPANIONS_CONTROL_SERVER_H

#include "companions/control/connection.h"
#include "companions/control/process_view.h"

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <pthread.h>
#include <sys/types.h>

/// Serves the clients of the socket in a thread of its own. There is one object, which lives as long as the process and
/// goes on over a reload, with its connections and the commands that are under way.
class Server
{
public:
  explicit Server(Process_View& view) : view_(view) {}

  /// Serve the clients that connect to `path`, or go on with that after detach(). Returns 0, or -1 with errno, see
  /// open_control_socket(). Main thread.
  int attach(const std::string& path);

  /// The service is finalised by a reload: end as stop() does after that, unless attach() is called until then. Main
  /// thread.
  void detach();

  /// Close all connections and remove the socket. Waits for the thread, for a few seconds at most. Main thread.
  void stop();

private:
  enum State { STOPPED, ATTACHED, DETACHED, ENDING };

  /// The socket that clients connect to.
  struct Listener
  {
    int fd = -1;
    std::string path;
    ino_t inode = 0;
  };

  static void* run(void* arg);
  int start_thread();
  void join();
  void serve();
  bool is_over();
  bool is_anything_awaited() const;
  void wait_for_events();
  void accept_clients();
  void work_on_jobs();
  void close_all();
  void wake() const;

  Process_View& view_;
  std::atomic<int> state_{STOPPED};
  pthread_t thread_{};
  bool has_thread_ = false;
  int wake_fd_ = -1;

  std::mutex mutex_; // guards listener_, which the main thread replaces
  Listener listener_;

  // Only the thread uses these.
  std::list<Connection> connections_;
  std::vector<std::unique_ptr<Job>> orphans_; // the commands of clients that are gone
  bool accepts_ = true;
};

#endif // COMPANIONS_CONTROL_SERVER_H
