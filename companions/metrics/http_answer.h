#ifndef COMPANIONS_METRICS_HTTP_ANSWER_H
#define COMPANIONS_METRICS_HTTP_ANSWER_H

#include <functional>
#include <string>
#include <string_view>

/// Whether `request` has come as far as the empty line that ends the head of a request.
bool is_request_complete(std::string_view request);

/// The answer to a request, after which the connection is closed. `metrics` makes the content of /metrics, and is
/// called only for that. Requests other than GET and HEAD, for something else, or without the form of HTTP/1 get an
/// answer that says so. What `metrics` throws goes on to the caller.
std::string answer_request(std::string_view request, const std::function<std::string()>& metrics);

/// The answer to a request that is larger than the server reads.
std::string answer_large_request();

#endif // COMPANIONS_METRICS_HTTP_ANSWER_H
