#ifndef COMPANIONS_CONTROL_CONNECTION_H
#define COMPANIONS_CONTROL_CONNECTION_H

#include "companions/control/job.h"
#include "companions/control/process_view.h"

#include <chrono>
#include <memory>
#include <string>

/// A client: its requests, the command that is under way for it, and its answers. Nothing here waits. The thread of the
/// control.
class Connection
{
public:
  using Clock = std::chrono::steady_clock;

  /// Owns the descriptor `fd`.
  Connection(int fd, Process_View& view);
  ~Connection();

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int fd() const { return fd_; }

  /// The events of poll(2) that the client is waited for with.
  short events() const;

  /// Answer with an error, and read no further request.
  void refuse(const std::string& sentence);

  /// Act on the events that poll(2) has found, on the end of the command, and on the time that has passed.
  void go_on(short found);

  /// Whether a command is under way.
  bool is_busy() const { return job_ != nullptr; }

  /// Whether the client is gone, or there is nothing left to tell it.
  bool is_over() const;

  /// The command that is under way, which is carried out though its client is gone.
  std::unique_ptr<Job> take_job() { return std::move(job_); }

private:
  void receive();
  void read_requests();
  void answer_with(const nlohmann::json& answer);
  void send();
  void look_at_time();

  const int fd_;
  Process_View& view_;
  std::string in_;
  std::string out_;
  std::unique_ptr<Job> job_;
  bool is_gone_ = false;                   // nothing can be sent any more
  bool is_at_end_ = false;                 // the client sends nothing any more
  bool is_refused_ = false;                // no request is read any more
  Clock::time_point since_ = Clock::now(); // when the client did something last, or began a request
};

#endif // COMPANIONS_CONTROL_CONNECTION_H
