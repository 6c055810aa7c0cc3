// The echo server on Asio, with as many threads as the second argument says.

#include "bench/listen.h"

#include <asio.hpp>

#include <memory>
#include <thread>
#include <vector>

using asio::ip::tcp;

struct Connection : std::enable_shared_from_this<Connection>
{
  explicit Connection(tcp::socket s) : socket(std::move(s)) {}

  void echo()
  {
    socket.async_read_some(asio::buffer(buf), [self = shared_from_this()](std::error_code error, std::size_t size) {
      if (error)
        return;
      asio::write(self->socket, asio::buffer(self->buf, size), error);
      if (!error)
        self->echo();
    });
  }

  tcp::socket socket;
  char buf[4096];
};

static void greet(tcp::acceptor& acceptor)
{
  acceptor.async_accept([&acceptor](std::error_code error, tcp::socket socket) {
    if (!error)
      std::make_shared<Connection>(std::move(socket))->echo();
    greet(acceptor);
  });
}

int main(int, char** argv)
{
  const int threads = std::atoi(argv[2]);
  asio::io_context context(threads);
  tcp::acceptor acceptor(context, tcp::v4(), listen_at(argv[1]));
  greet(acceptor);
  report();

  std::vector<std::thread> pool;
  for (int n = 1; n < threads; ++n)
    pool.emplace_back([&context] { context.run(); });
  context.run();
}
