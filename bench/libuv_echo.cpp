// The echo server on libuv.

#include "bench/listen.h"

#include <uv.h>

static char memory[65536];

static void lend(uv_handle_t*, std::size_t, uv_buf_t* buf)
{
  *buf = uv_buf_init(memory, sizeof memory);
}

static void echo(uv_stream_t* stream, ssize_t size, const uv_buf_t* buf)
{
  uv_buf_t text = uv_buf_init(buf->base, static_cast<unsigned>(size > 0 ? size : 0));
  if (size < 0 || (size > 0 && uv_try_write(stream, &text, 1) != size))
    uv_close(reinterpret_cast<uv_handle_t*>(stream), [](uv_handle_t* h) { delete reinterpret_cast<uv_tcp_t*>(h); });
}

static void greet(uv_stream_t* listener, int)
{
  uv_tcp_t* const connection = new uv_tcp_t;
  uv_tcp_init(listener->loop, connection);
  uv_accept(listener, reinterpret_cast<uv_stream_t*>(connection));
  uv_read_start(reinterpret_cast<uv_stream_t*>(connection), lend, echo);
}

int main(int, char** argv)
{
  uv_tcp_t listener;
  uv_tcp_init(uv_default_loop(), &listener);
  uv_tcp_open(&listener, listen_at(argv[1]));
  uv_listen(reinterpret_cast<uv_stream_t*>(&listener), 1024, greet);
  report();
  return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
}
