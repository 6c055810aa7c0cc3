// Lets the echo service work for 200 clients, some of them slow and some that vanish, under hang-ups and debug toggles,
// with each kind of reactor in turn.
//
//   soak SECONDS [--seed N]    in all
//
// The status is 0 if every process ended with 0, lost nothing and did not grow. A hang-up ends the clients of the
// service, as its README says: what is on its way just then is not promised to come back, anything else is.

#include "tests/soak/client.h"
#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

using Clock = Client::Clock;
using std::chrono::milliseconds;

enum { CLIENTS = 200, FIRST_RELOADS = 100, ROUND_MSEC = 5 };

static constexpr std::chrono::seconds PATIENCE(60); // with anything that has to happen
// The growth of the memory in use that counts as none: each thread makes its log when it first writes a record, for
// instance.
static constexpr unsigned long GROWTH_BYTES = 65536;
static const char LISTENS[] = "Echo listens on 127.0.0.1:";
static const std::string IN_USE = "Memory in use: "; // the last record of a reload

namespace
{
struct Kind
{
  const char* name;
  std::vector<std::string> args;
};

struct Size
{
  unsigned long bytes;
  std::size_t descriptors;
};

// A signal whose record is waited for before the next one, as signals that wait become one.
class Signal
{
public:
  Signal(int signo, const std::string& record, milliseconds pause) : signo_(signo), record_(record), pause_(pause) {}

  /// Send it to the process if it is time to.
  void send_when_due(const Starter_Process& starter, std::mt19937& random);

  /// Look at new lines of the log. Throws when nothing has been seen for too long.
  void look_at(const std::string& lines);

  void send(const Starter_Process& starter);
  bool is_under_way() const { return sent_ != served_; }
  unsigned sent() const { return sent_; }

private:
  const int signo_;
  const std::string record_;
  const milliseconds pause_; // between two of them, on average
  unsigned sent_ = 0;
  unsigned served_ = 0;
  Clock::time_point sent_at_;
  Clock::time_point next_ = Clock::now();
};

// The process under load.
class Soak
{
public:
  Soak(const Kind& kind, std::mt19937& random);

  /// Let clients come and go for `duration`, then let them finish, until the process has nothing left to do.
  void load(milliseconds duration);

  /// Reload the idle service `count` times.
  void reload(unsigned count);

  /// Toggle the debug records back if they are on, and reload: the size right after that.
  Size measure();

  int terminate();
  std::string summary() const;

private:
  struct Guest
  {
    std::unique_ptr<Client> client;
    unsigned reloads = 0;    // begun before it came
    bool is_excused = false; // it came during one
  };

  void read_log();
  void settle();
  void fill();
  void serve_round();
  void send_signals();
  void finish(Guest& guest, Client::State state);

  std::mt19937& random_;
  const unsigned short port_;
  const Temp_Dir dir_;
  Starter_Process starter_;
  Signal hang_up_{SIGHUP, IN_USE, milliseconds(700)};
  Signal toggle_{SIGUSR2, "able ACE::debug.", milliseconds(500)};
  std::size_t log_seen_ = 0;
  std::vector<Guest> guests_;
  unsigned long served_ = 0;
  unsigned long vanished_ = 0;
  unsigned long excused_ = 0;
  unsigned long long bytes_ = 0;
};
} // namespace

// ---- Signals

void Signal::send(const Starter_Process& starter)
{
  starter.send(signo_);
  ++sent_;
  sent_at_ = Clock::now();
}

void Signal::send_when_due(const Starter_Process& starter, std::mt19937& random)
{
  if (is_under_way() || Clock::now() < next_)
    return;

  send(starter);
  next_ = sent_at_ + milliseconds(random() % static_cast<unsigned>(2 * pause_.count()));
}

void Signal::look_at(const std::string& lines)
{
  for (std::size_t at = lines.find(record_); at != std::string::npos; at = lines.find(record_, at + 1))
    ++served_;
  if (served_ > sent_)
    throw std::runtime_error("a record of a signal that was not sent: " + record_);
  if (is_under_way() && Clock::now() > sent_at_ + PATIENCE)
    throw std::runtime_error("signal " + std::to_string(signo_) + " is not served: no " + record_);
}

// ---- The process

// A port that nobody is given by chance: each start of the service is to have the same.
static unsigned short free_port(std::mt19937& random)
{
  for (;;) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(20000 + random() % 12000));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool is_free = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    if (is_free)
      return ntohs(address.sin_port);
  }
}

static std::vector<std::string> make_args(const Kind& kind, const Temp_Dir& dir, unsigned short port)
{
  dir.write("conf.d/echo.conf", "dynamic Echo Service_Object * " + public_path(TESTS_ECHO_LIBRARY) +
                                    ":_make_Echo() \"-p " + std::to_string(port) + "\"\n");
  dir.write("conf.d/meter.conf",
            "dynamic Meter Service_Object * " + public_path(TESTS_METER_LIBRARY) + ":_make_Meter()\n");
  std::vector<std::string> args = kind.args;
  args.insert(args.end(), {"-f", dir / "conf.d"});
  return args;
}

// Without the caches of the allocator, which count as memory in use.
static Start_Options make_options()
{
  Start_Options options;
  options.env["GLIBC_TUNABLES"] = "glibc.malloc.tcache_count=0";
  return options;
}

Soak::Soak(const Kind& kind, std::mt19937& random)
    : random_(random), port_(free_port(random)), starter_(make_args(kind, dir_, port_), make_options())
{
  if (!starter_.wait_for_record(LISTENS) || !starter_.wait_for_record(IN_USE) ||
      !starter_.wait_for_record(" is started.") || !starter_.wait_for_event_loop())
    throw std::runtime_error("the program does not start:\n" + starter_.log());
  log_seen_ = starter_.log().size();
}

void Soak::read_log()
{
  const std::string log = starter_.log();
  const std::size_t end = log.rfind('\n') + 1; // of the last complete line
  const std::string lines = log.substr(log_seen_, end - log_seen_);
  log_seen_ = end;

  if (!starter_.is_running())
    throw std::runtime_error("the process has ended:\n" +
                             log.substr(log.size() - std::min<std::size_t>(log.size(), 4000)));
  hang_up_.look_at(lines);
  toggle_.look_at(lines);
}

void Soak::settle()
{
  while (read_log(), hang_up_.is_under_way() || toggle_.is_under_way())
    (void)poll(nullptr, 0, ROUND_MSEC);
}

void Soak::reload(unsigned count)
{
  for (unsigned i = 0; i < count; ++i) {
    hang_up_.send(starter_);
    settle();
  }
}

static std::size_t count_descriptors(pid_t pid)
{
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

Size Soak::measure()
{
  settle();
  if (toggle_.sent() % 2 != 0)
    toggle_.send(starter_);
  settle();
  if (!starter_.wait_until_idle())
    throw std::runtime_error("the process does not come to rest");
  reload(1);

  const std::string log = starter_.log();
  return {std::stoul(log.substr(log.rfind(IN_USE) + IN_USE.size())), count_descriptors(starter_.pid())};
}

int Soak::terminate()
{
  starter_.send(SIGTERM);
  return starter_.wait_status();
}

// ---- Clients

void Soak::fill()
{
  while (guests_.size() < CLIENTS) {
    const auto drawn = random_() % 10;
    Guest guest;
    guest.reloads = hang_up_.sent();
    guest.is_excused = hang_up_.is_under_way();
    guest.client = std::make_unique<Client>(port_, drawn < 6 ? WELL_BEHAVED : drawn < 8 ? SLOW : VANISHING, random_);
    guests_.push_back(std::move(guest));
  }
}

void Soak::finish(Guest& guest, Client::State state)
{
  const Client& client = *guest.client;
  const bool met_reload = guest.is_excused || guest.reloads != hang_up_.sent();
  bytes_ += client.received();

  if (state == Client::DONE)
    ++(client.manner() == VANISHING ? vanished_ : served_);
  else if (met_reload && !client.is_garbled())
    ++excused_;
  else
    throw std::runtime_error("a client lost something: " + client.fault());
  guest.client.reset();
}

void Soak::serve_round()
{
  std::vector<pollfd> fds;
  for (const Guest& guest : guests_)
    fds.push_back({guest.client->handle(), guest.client->events(), 0});
  (void)poll(fds.data(), fds.size(), ROUND_MSEC);

  for (std::size_t i = 0; i < fds.size(); ++i) {
    if (fds[i].revents == 0)
      continue;
    const Client::State state = guests_[i].client->work(fds[i].revents);
    if (state != Client::AT_WORK)
      finish(guests_[i], state);
  }
  guests_.erase(std::remove_if(guests_.begin(), guests_.end(), [](const Guest& guest) { return !guest.client; }),
                guests_.end());
}

// One at a time, and while the main thread waits: a signal that comes while the main thread serves another one may be
// delivered to a loop thread, which then ends unless the reactor is a tp. That is how pools are meant to be.
void Soak::send_signals()
{
  if (hang_up_.is_under_way() || toggle_.is_under_way() || !is_in_event_loop(starter_.pid()))
    return;

  hang_up_.send_when_due(starter_, random_);
  if (!hang_up_.is_under_way())
    toggle_.send_when_due(starter_, random_);
}

void Soak::load(milliseconds duration)
{
  const Clock::time_point end = Clock::now() + duration;

  for (Clock::time_point now; (now = Clock::now()) < end || !guests_.empty();) {
    if (now > end + PATIENCE)
      throw std::runtime_error(std::to_string(guests_.size()) + " clients are not served to the end");
    read_log();
    if (now < end) {
      send_signals();
      fill();
    }
    serve_round();
  }
}

std::string Soak::summary() const
{
  return std::to_string(served_) + " clients served, " + std::to_string(vanished_) + " vanished, " +
         std::to_string(excused_) + " met a reload, " + std::to_string(bytes_ >> 20) + " MiB came back, " +
         std::to_string(hang_up_.sent()) + " hang-ups, " + std::to_string(toggle_.sent()) + " debug toggles";
}

// ---- All kinds

static const std::vector<Kind> KINDS = {{"default", {}},
                                        {"select", {"--reactor", "select"}},
                                        {"tp, 4 threads", {"--reactor", "tp", "--threads", "4"}},
                                        {"dev_poll", {"--reactor", "dev_poll"}},
                                        {"dev_poll, 4 threads", {"--reactor", "dev_poll", "--threads", "4"}},
                                        {"priority", {"--reactor", "priority"}}};

// A first part of the load brings the process to its full size: what it keeps after that is growth.
static bool soak(const Kind& kind, milliseconds duration, std::mt19937& random)
{
  Soak process(kind, random);
  process.reload(FIRST_RELOADS);
  process.load(duration / 4);
  const Size before = process.measure();

  process.load(duration - duration / 4);
  const Size after = process.measure();

  const int status = process.terminate();
  const bool grows = after.bytes > before.bytes + GROWTH_BYTES || after.descriptors != before.descriptors;
  std::cout << kind.name << ": " << process.summary() << "; memory in use " << before.bytes << " to " << after.bytes
            << " bytes, descriptors " << before.descriptors << " to " << after.descriptors << ", status " << status
            << (grows || status != 0 ? "; FAILED" : "") << std::endl;
  return !grows && status == 0;
}

static bool soak_all(milliseconds duration, unsigned seed)
{
  std::mt19937 random(seed);
  bool is_good = true;

  for (const Kind& kind : KINDS)
    try {
      is_good &= soak(kind, duration / static_cast<long>(KINDS.size()), random);
    } catch (const std::exception& e) {
      std::cout << kind.name << ": FAILED, " << e.what() << std::endl;
      is_good = false;
    }
  return is_good;
}

int main(int argc, char** argv)
{
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() != 1 && !(args.size() == 3 && args[1] == "--seed")) {
    std::cerr << "soak SECONDS [--seed N]" << std::endl;
    return 2;
  }

  const unsigned seed = args.size() == 3 ? static_cast<unsigned>(std::stoul(args[2])) : 1;
  return soak_all(std::chrono::seconds(std::stoul(args[0])), seed) ? 0 : 1;
}
