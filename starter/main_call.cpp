#include "starter/main_call.h"

#include "starter/host_phase.h"
#include "starter/loop_control.h"
#include "starter/service_repository.h"
#include "starter/signals.h"

#include <atomic>

#include <semaphore.h>

namespace
{
enum State { FREE, TAKEN, WAITING };

// The call belongs to whoever has taken its place.
struct Call
{
  std::atomic<int> state{FREE};
  void (*function)(void*);
  void* argument;

  bool change(int from, int to) { return state.compare_exchange_strong(from, to); }
};

struct Rest
{
  Rest() { (void)sem_init(&news, 0, 0); } // cannot fail with these arguments
  sem_t news;
};
} // namespace

static Call call;
static Rest rest;

void wake_main_thread()
{
  (void)sem_post(&rest.news); // fails only when it has been called two thousand million times too often
}

void rest_main_thread()
{
  (void)sem_wait(&rest.news); // a signal interrupts it
}

// Whoever begins to run the loop, or to wait for it, looks for a call afterwards.
static bool reach_main_thread()
{
  if (has_loop_threads())
    wake_main_thread();
  else if (get_host_phase() == LOOP)
    return leave_event_loop();
  return true;
}

int starter_call(void (*function)(void*), void* argument)
{
  if (!function)
    return call.change(WAITING, FREE) ? 1 : 0;
  if (!call.change(FREE, TAKEN))
    return 0;

  call.function = function;
  call.argument = argument;
  call.state = WAITING;
  return reach_main_thread() || !call.change(WAITING, FREE) ? 1 : 0;
}

bool serve_main_call()
{
  if (call.state != WAITING || is_termination_caught() || is_loop_ended())
    return false;

  const Service_Pause pause;
  if (!call.change(WAITING, TAKEN))
    return true; // withdrawn, and a hang-up may be due by now
  void (*const function)(void*) = call.function;
  void* const argument = call.argument;
  call.state = FREE;

  function(argument);
  pack_service_repository();
  if (!has_loop_threads())
    forget_stale_event();
  return true;
}

// The note that leads services to the function: see starter/loop_turns.cpp.
asm(R"(
  .pushsection .note.starter, "a", @note
  .balign 4
  .long 8, 8, 4
  .asciz "starter"
0:
  .quad starter_call - 0b
  .popsection
)");
