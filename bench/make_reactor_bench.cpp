#include "scrt/make_reactor.h"

#include "bench/side_by_side.h"

#include <ace/Dev_Poll_Reactor.h>
#include <ace/Priority_Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/TP_Reactor.h>
#include <benchmark/benchmark.h>

#include <memory>

template <typename Impl>
static ACE_Reactor* make_directly()
{
  return new ACE_Reactor(new Impl, true);
}

// Measures the creation and the end of a reactor by its name, compared with the same classes created directly.
static void make_reactor_named(benchmark::State& state, const char* name, make_reactor_t make)
{
  const Contender own{"make_reactor", [name] {
                        const std::unique_ptr<ACE_Reactor> reactor(get_reactor_factory(name, 2)());
                        benchmark::DoNotOptimize(reactor.get());
                      }};
  const Contender directly{"new", [make] {
                             const std::unique_ptr<ACE_Reactor> reactor(make());
                             benchmark::DoNotOptimize(reactor.get());
                           }};
  side_by_side(state, 1, own, directly);
}
BENCHMARK_CAPTURE(make_reactor_named, select, "select", make_directly<ACE_Select_Reactor>)->UseManualTime();
BENCHMARK_CAPTURE(make_reactor_named, tp, "tp", make_directly<ACE_TP_Reactor>)->UseManualTime();
BENCHMARK_CAPTURE(make_reactor_named, dev_poll, "dev_poll", make_directly<ACE_Dev_Poll_Reactor>)->UseManualTime();
BENCHMARK_CAPTURE(make_reactor_named, priority, "priority", make_directly<ACE_Priority_Reactor>)->UseManualTime();
