// The library of the metrics, and the parts of the companion that can be had without a process.

#include "companions/metrics/http_answer.h"
#include "companions/metrics/listener.h"
#include "metrics/registry.h"

#include "tests/support/temp_dir.h"

#include <starter/metrics.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

using starter::counter;
using starter::gauge;
using starter::histogram;
using testing::HasSubstr;
using testing::StartsWith;

// ---- The library

TEST(metrics, are_the_same_objects_for_the_same_name_and_labels)
{
  starter::Counter* const first = counter("same_total", "The first help.", {{"a", "1"}, {"b", "2"}});

  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, counter("same_total", "Another help.", {{"b", "2"}, {"a", "1"}}));
  EXPECT_NE(first, counter("same_total", "", {{"a", "1"}}));
  EXPECT_NE(first, counter("same_total", "", {{"a", "2"}, {"b", "1"}}));
  EXPECT_EQ(gauge("same_seconds", ""), gauge("same_seconds", ""));
  EXPECT_EQ(histogram("same_bytes", "", {1, 2}), histogram("same_bytes", "", {3}));
}

TEST(metrics, copy_the_texts_that_they_are_made_with)
{
  std::string name = "copied_total";
  std::string value = "value";
  starter::Counter* const first = counter(name.c_str(), "", {{"label", value.c_str()}});
  name = "xxxxxx_total";
  value = "xxxxx";

  EXPECT_EQ(first, counter("copied_total", "", {{"label", "value"}}));
}

TEST(metrics, refuse_what_is_not_allowed)
{
  const auto fails_with = [](int error, const auto& make) {
    errno = 0;
    EXPECT_EQ(nullptr, make());
    EXPECT_EQ(error, errno);
  };
  ASSERT_NE(nullptr, counter("taken_total", ""));

  for (const char* const name : {"", "1st_total", "with-dash", "with blank", "__"})
    if (name[0] != '_')
      fails_with(EINVAL, [=] { return counter(name, ""); });
  fails_with(EINVAL, [] { return counter(nullptr, ""); });
  fails_with(EINVAL, [] { return counter("x_total", nullptr); });
  for (const char* const label : {"", "1a", "a:b", "__a"})
    fails_with(EINVAL, [=] { return gauge("x_seconds", "", {{label, ""}}); });
  fails_with(EINVAL, [] { return gauge("x_seconds", "", {{"a", nullptr}}); });
  fails_with(EINVAL, [] { return gauge("x_seconds", "", {{"a", "1"}, {"a", "2"}}); });
  fails_with(EINVAL, [] { return histogram("x_bytes", "", {}); });
  fails_with(EINVAL, [] { return histogram("x_bytes", "", {1, 1}); });
  fails_with(EINVAL, [] { return histogram("x_bytes", "", {2, 1}); });
  fails_with(EEXIST, [] { return gauge("taken_total", ""); });
  fails_with(EEXIST, [] { return histogram("taken_total", "", {1}); });
}

TEST(metrics, count_in_all_threads_at_once)
{
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] {
      for (int n = 0; n < 10000; ++n) {
        counter("threads_total", "", {{"n", std::to_string(n % 10).c_str()}})->increment();
        histogram("threads_seconds", "", {1})->observe(0.5);
      }
    });
  for (std::thread& thread : threads)
    thread.join();

  for (int n = 0; n < 10; ++n)
    EXPECT_EQ(4000, counter("threads_total", "", {{"n", std::to_string(n).c_str()}})->value());
}

TEST(metrics, go_up_and_down_as_their_kind_allows)
{
  starter::Counter& count = *counter("kinds_total", "");
  count.increment();
  count.increment(2.5);
  count.increment(-1);
  EXPECT_EQ(3.5, count.value());

  starter::Gauge& level = *gauge("kinds_bytes", "");
  level.set(5);
  level.add(-7.5);
  EXPECT_EQ(-2.5, level.value());
}

TEST(metrics, are_collected_with_their_values)
{
  counter("collected_total", "A help.", {{"a", "1"}})->increment(3);
  histogram("collected_seconds", "", {1, 10})->observe(5);

  bool has_counter = false;
  for (const prometheus::MetricFamily& family : starter::collect_metrics())
    if (family.name == "collected_total") {
      has_counter = true;
      EXPECT_EQ("A help.", family.help);
      ASSERT_EQ(1u, family.metric.size());
      EXPECT_EQ(3, family.metric[0].counter.value);
    } else if (family.name == "collected_seconds") {
      ASSERT_EQ(3u, family.metric[0].histogram.bucket.size());
      EXPECT_EQ(0u, family.metric[0].histogram.bucket[0].cumulative_count);
      EXPECT_EQ(1u, family.metric[0].histogram.bucket[1].cumulative_count);
    }
  EXPECT_TRUE(has_counter);
}

// ---- Requests and answers

TEST(http_answer, has_the_metrics_for_a_request_of_them_only)
{
  const std::tuple<const char*, const char*> cases[] = {
      {"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n", "200 OK"},
      {"GET /metrics?name=x HTTP/1.0\n\n", "200 OK"},
      {"HEAD /metrics HTTP/1.1\r\n\r\n", "200 OK"},
      {"GET / HTTP/1.1\r\n\r\n", "404 Not Found"},
      {"GET /metricsx HTTP/1.1\r\n\r\n", "404 Not Found"},
      {"GET /../metrics HTTP/1.1\r\n\r\n", "404 Not Found"},
      {"POST /metrics HTTP/1.1\r\n\r\n", "405 Method Not Allowed"},
      {"get /metrics HTTP/1.1\r\n\r\n", "405 Method Not Allowed"},
      {"GET /metrics\r\n\r\n", "400 Bad Request"},
      {"GET /metrics HTTP/2.0\r\n\r\n", "400 Bad Request"},
      {"GET  /metrics HTTP/1.1\r\n\r\n", "400 Bad Request"},
      {"\r\n\r\n", "400 Bad Request"},
      {"\x16\x03\x01\x02\r\n\r\n", "400 Bad Request"},
  };
  for (const auto& [request, status] : cases) {
    SCOPED_TRACE(request);
    int calls = 0;
    const std::string answer = answer_request(request, [&calls] {
      ++calls;
      return std::string("x 1\n");
    });

    EXPECT_THAT(answer, StartsWith("HTTP/1.1 " + std::string(status) + "\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nConnection: close\r\n"));
    EXPECT_EQ(status == std::string("200 OK") ? 1 : 0, calls);
  }
}

TEST(http_answer, has_no_content_for_the_method_that_wants_none)
{
  const auto metrics = [] { return std::string("x 1\n"); };

  EXPECT_THAT(answer_request("GET /metrics HTTP/1.1\r\n\r\n", metrics),
              HasSubstr("\r\nContent-Length: 4\r\nConnection: close\r\n\r\nx 1\n"));
  EXPECT_THAT(answer_request("HEAD /metrics HTTP/1.1\r\n\r\n", metrics),
              testing::EndsWith("\r\nContent-Length: 4\r\nConnection: close\r\n\r\n"));
}

TEST(http_answer, knows_the_end_of_a_request)
{
  for (const char* const part : {"", "GET", "GET / HTTP/1.1\r\n", "GET / HTTP/1.1\r\nHost: x\r\n"})
    EXPECT_FALSE(is_request_complete(part)) << part;
  for (const char* const whole : {"\r\n\r\n", "GET / HTTP/1.1\r\nHost: x\r\n\r\n", "GET / HTTP/1.0\n\n"})
    EXPECT_TRUE(is_request_complete(whole)) << whole;
}

// ---- The listener

TEST(listener, refuses_an_address_that_is_none)
{
  for (const char* const address : {"", "9464", ":9464", "127.0.0.1", "127.0.0.1:", "127.0.0.1:http", "127.0.0.1:70000",
                                    "localhost:9464", "::1:9464", "[::1:9464", "[]:9464", "unix:", "unix:relative"}) {
    SCOPED_TRACE(address);
    Listener listener;
    EXPECT_EQ(-1, listener.open(address));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ("", listener.address());
  }
  Listener listener;
  EXPECT_EQ(-1, listener.open(("unix:/" + std::string(200, 'x')).c_str()));
  EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST(listener, tells_the_port_that_the_system_has_chosen)
{
  Listener listener;
  ASSERT_EQ(0, listener.open("127.0.0.1:0"));
  EXPECT_THAT(listener.address(), testing::MatchesRegex("127\\.0\\.0\\.1:[1-9][0-9]*"));

  Listener second;
  EXPECT_EQ(-1, second.open(listener.address().c_str()));
  EXPECT_EQ(EADDRINUSE, errno);
}

TEST(listener, replaces_a_socket_that_nobody_listens_to_and_no_other)
{
  const Temp_Dir dir;
  const std::string address = "unix:" + dir / "socket";
  Listener listener;
  ASSERT_EQ(0, listener.open(address.c_str()));

  Listener second;
  EXPECT_EQ(-1, second.open(address.c_str()));
  EXPECT_EQ(EADDRINUSE, errno);

  listener.close();
  EXPECT_EQ(0, second.open(address.c_str()));
  second.close();

  dir.write("socket", "a file");
  EXPECT_EQ(-1, second.open(address.c_str()));
  EXPECT_EQ(EADDRINUSE, errno);
  EXPECT_EQ("a file", read_file(dir / "socket"));
}
