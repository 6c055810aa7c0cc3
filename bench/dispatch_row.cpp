// Measures an echo of 64 bytes in the program with every kind of reactor and 1, 2 and 4 threads, in bare hosts with the
// same, and in servers on other libraries: the processor time that the server takes for a request, and the rate. Each
// connection waits for its answer before it asks again. Then the latency at a fixed rate.
//
//   dispatch_row ROUNDS MSEC [PEER]

#include "bench/figures.h"
#include "bench/own_processor.h"
#include "bench/session.h"

#include <cstdlib>
#include <map>
#include <utility>

enum { LATENCY_RATE = 5000, LATENCY_CONNECTIONS = 64 };

struct Load
{
  const char* name;
  std::size_t busy;
  std::size_t idle;
};

static const Load LOADS[] = {{"1", 1, 0}, {"8", 8, 0}, {"64", 64, 0}, {"512", 512, 0}, {"16 busy, 500 idle", 16, 500}};

static const std::pair<const char*, double> PERCENTILES[] = {{"median", 0.5}, {"99 %", 0.99}, {"99.9 %", 0.999}};

static const char* const REFERENCE = "raw epoll";

static std::string with_threads(const std::string& name, unsigned threads)
{
  return threads < 2 ? name : name + ", " + std::to_string(threads) + " threads";
}

static Server peer(const char* name, const char* program, unsigned threads = 1)
{
  return {with_threads(name, threads), {std::string(BENCH_DIR "/") + program}, threads, false};
}

// A host stands beside the bare host with the same reactor, so that whatever disturbs the one disturbs the other.
static void add_hosts(std::vector<Server>& servers, const std::string& kind, unsigned threads)
{
  const std::string count = std::to_string(threads);
  servers.push_back({with_threads("bare " + kind, threads), {BENCH_DIR "/bare_host", kind, count}, threads, true});
  servers.push_back({with_threads("starter " + kind, threads),
                     {BENCH_STARTER, "--reactor", kind, "--threads", count},
                     threads,
                     true});
}

static std::vector<Server> all_servers()
{
  std::vector<Server> servers;
  for (const unsigned threads : {1U, 2U, 4U})
    servers.push_back(peer(REFERENCE, "epoll_echo", threads));
  servers.push_back(peer("libevent", "libevent_echo"));
  servers.push_back(peer("libev", "libev_echo"));
  servers.push_back(peer("libuv", "libuv_echo"));
  for (const unsigned threads : {1U, 2U, 4U})
    servers.push_back(peer("Asio", "asio_echo", threads));
  for (const char* const kind : {"select", "priority", "dev_poll"})
    for (const unsigned threads : {1U, 2U, 4U})
      add_hosts(servers, kind, threads);
  for (const unsigned threads : {2U, 4U}) // the program refuses this reactor with one thread
    add_hosts(servers, "tp", threads);
  return servers;
}

// Returns raw epoll and the servers whose names contain `text`.
static std::vector<Server> chosen_servers(const std::string& text)
{
  std::vector<Server> servers;
  std::size_t found = 0;
  for (const Server& server : all_servers()) {
    const bool is_chosen = server.name.find(text) != std::string::npos;
    found += is_chosen ? 1U : 0U;
    if (is_chosen || server.name == REFERENCE)
      servers.push_back(server);
  }
  if (found == 0)
    throw std::runtime_error("no server has \"" + text + "\" in its name");
  return servers;
}

// The samples of the rounds, by what was measured and the server.
using Samples = std::map<std::pair<std::string, std::string>, std::vector<double>>;

// The load generator never sleeps here, so that it would keep a server waiting that shares its processor.
static void measure_latency(const Server& server, double seconds, Samples& latency)
{
  Own_Processor own;
  Session session(server, LATENCY_CONNECTIONS);
  own.take();
  const std::vector<double> usec = session.latencies_at(LATENCY_RATE, seconds);
  for (const auto& [text, q] : PERCENTILES)
    latency[{text, server.name}].push_back(quantile(usec, q));
}

// Prints what the program takes compared with the bare host that has the same reactor and threads.
static void print_host_ratios(const Load& load, const std::vector<Server>& servers, Samples& usec)
{
  for (const Server& server : servers) {
    const std::string host = "bare " + server.name.substr(server.name.find(' ') + 1);
    if (server.words[0] == BENCH_STARTER && usec.count({load.name, host}) != 0)
      print_figures("dispatch", std::string(load.name) + " connections: times the processor time of a bare host",
                    server.name, ratios_of(usec[{load.name, server.name}], usec[{load.name, host}]));
  }
}

static void print_all(const std::vector<Server>& servers, Samples& usec, Samples& rate, Samples& latency)
{
  for (const Load& load : LOADS)
    for (const Server& server : servers)
      print_figures("dispatch", std::string(load.name) + " connections: processor time for a request, us", server.name,
                    usec[{load.name, server.name}], usec[{load.name, REFERENCE}]);
  for (const Load& load : LOADS)
    print_host_ratios(load, servers, usec);
  for (const Load& load : LOADS)
    for (const Server& server : servers)
      print_figures("dispatch", std::string(load.name) + " connections: requests for each second", server.name,
                    rate[{load.name, server.name}], rate[{load.name, REFERENCE}]);
  for (const auto& [text, q] : PERCENTILES)
    for (const Server& server : servers)
      print_figures("latency", std::string(text) + " at 5,000 requests for each second, us", server.name,
                    latency[{text, server.name}], latency[{text, REFERENCE}]);
}

int main(int argc, char** argv)
try {
  const int rounds = std::atoi(argv[1]);
  const double seconds = 1e-3 * std::atoi(argv[2]);
  const std::vector<Server> servers = chosen_servers(argc > 3 ? argv[3] : "");

  Samples usec;
  Samples rate;
  Samples latency;
  for (int n = 0; n < rounds; ++n) {
    for (const Load& load : LOADS)
      for (const Server& server : servers) {
        std::fprintf(stderr, "dispatch: round %d of %d, %s connections, %s\n", n + 1, rounds, load.name,
                     server.name.c_str());
        Session(server, load.busy + load.idle)
            .ask(load.busy, seconds, rate[{load.name, server.name}], usec[{load.name, server.name}]);
      }
    for (const Server& server : servers) {
      std::fprintf(stderr, "dispatch: round %d of %d, latency, %s\n", n + 1, rounds, server.name.c_str());
      measure_latency(server, 2 * seconds, latency);
    }
  }
  print_all(servers, usec, rate, latency);
} catch (const std::exception& failure) {
  return tell(failure);
}
