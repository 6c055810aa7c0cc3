#ifndef TESTS_SUPPORT_CONTROL_CLIENT_H
#define TESTS_SUPPORT_CONTROL_CLIENT_H

#include <nlohmann/json.hpp>

#include <string>

/// A client of the companion control.
class Control_Client
{
public:
  /// Connect to the socket at `path`, as soon as it is there. Not connected when a minute passes before that.
  explicit Control_Client(const std::string& path);
  ~Control_Client();

  Control_Client(const Control_Client&) = delete;
  Control_Client& operator=(const Control_Client&) = delete;

  bool is_connected() const { return fd_ != -1; }

  /// Send `text` as it is. False if the other side takes no more.
  bool send(const std::string& text) const;

  /// End the sending, which the other side sees.
  void end_sending() const;

  /// The next line without its end; empty at the end of the connection, and when a minute passes before it comes.
  std::string line();

  /// Whether the other side has closed the connection, or does so within a minute, without a further line.
  bool is_closed();

  /// Send the request and return the answer; null if there is none.
  nlohmann::json ask(const nlohmann::json& request);

  /// Ask for a command without members, or with one.
  nlohmann::json command(const std::string& name);
  nlohmann::json command(const std::string& name, const std::string& member, const nlohmann::json& value);

private:
  int fd_ = -1;
  std::string in_;
};

#endif // TESTS_SUPPORT_CONTROL_CLIENT_H
