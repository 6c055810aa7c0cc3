#include "companions/metrics/http_answer.h"

static const char PLAIN[] = "text/plain; charset=utf-8";
static const char METRICS[] = "text/plain; version=0.0.4; charset=utf-8"; // Prometheus' text format

namespace
{
struct Request_Line
{
  std::string_view method;
  std::string_view path; ///< without a query
  std::string_view version;
};
} // namespace

bool is_request_complete(std::string_view request)
{
  return request.find("\r\n\r\n") != std::string_view::npos || request.find("\n\n") != std::string_view::npos;
}

// Takes the text up to `end`, and `end` itself, off `rest`.
static std::string_view take_word(std::string_view& rest, char end)
{
  const std::string_view word = rest.substr(0, rest.find(end));
  rest.remove_prefix(word.size() == rest.size() ? word.size() : word.size() + 1);
  return word;
}

static Request_Line read_request_line(std::string_view request)
{
  std::string_view line = request.substr(0, request.find_first_of("\r\n"));
  Request_Line result;
  result.method = take_word(line, ' ');
  std::string_view target = take_word(line, ' ');
  result.path = take_word(target, '?');
  result.version = line;
  return result;
}

static std::string make_answer(const char* status, const char* type, const std::string& content, bool has_content,
                               const char* more = "")
{
  std::string answer = "HTTP/1.1 " + std::string(status) + "\r\nContent-Type: " + type +
                       "\r\nContent-Length: " + std::to_string(content.size()) + "\r\nConnection: close\r\n" + more +
                       "\r\n";
  if (has_content)
    answer += content;
  return answer;
}

std::string answer_request(std::string_view request, const std::function<std::string()>& metrics)
{
  const Request_Line line = read_request_line(request);
  const bool is_head = line.method == "HEAD";

  if (line.version.substr(0, 7) != "HTTP/1." || line.path.empty())
    return make_answer("400 Bad Request", PLAIN, "This is no request of HTTP/1.\n", true);
  if (line.method != "GET" && !is_head)
    return make_answer("405 Method Not Allowed", PLAIN, "There are GET and HEAD.\n", true, "Allow: GET, HEAD\r\n");
  if (line.path != "/metrics")
    return make_answer("404 Not Found", PLAIN, "The metrics are at /metrics.\n", !is_head);
  return make_answer("200 OK", METRICS, metrics(), !is_head);
}

std::string answer_large_request()
{
  return make_answer("431 Request Header Fields Too Large", PLAIN, "The request is too large.\n", true);
}
