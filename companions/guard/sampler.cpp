// The signal handler here interrupts a thread anywhere: in the allocator, in the dynamic loader, with any lock held. It
// takes no lock and no memory. The unwinder is that of the compiler's runtime, which the process has in any case: since
// version 12 it looks the tables of libraries up without the lock of the loader.

#include "companions/guard/sampler.h"

#include "companions/guard/clock.h"
#include "companions/guard/symbols.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <semaphore.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

enum { PATIENCE_MSEC = 500 }; // for a thread that is to take a sample

// The numbers that the tables of the unwinder have for the registers which functions keep for their callers.
#if defined(__x86_64__)
static const int SAVED_NUMBERS[SAVED_REGISTERS] = {3, 6, 12, 13, 14, 15};
#elif defined(__aarch64__)
static const int SAVED_NUMBERS[SAVED_REGISTERS] = {19, 20, 21, 22, 23, 24};
#else
#error "The registers that functions keep for their callers are not known for this processor."
#endif

// The sample belongs to the guard's thread, except while it is asked for and taken. A thread that answers too late, or
// a signal that somebody else has sent, finds that it is not asked for.
enum State { FREE, ASKED, TAKING, TAKEN };
static Sample sample;
static std::atomic<int> state;
static std::atomic<int> request; // the number of the one at hand
static sem_t taken;

static int sample_signal;
static Address_Range loop_function;

// Whole words, as the guard's thread may replace them at any time. It does so when there is no loop, or hardly ever.
static std::atomic<std::uintptr_t> reactor_begin;
static std::atomic<std::uintptr_t> reactor_end;
static std::atomic<bool> waits_in_select;

// ---- In the signal handler

struct Walk
{
  bool is_outside; // of the signal handler
  std::size_t count;
};

static _Unwind_Reason_Code note_frame(_Unwind_Context* context, void* arg)
{
  Walk& walk = *static_cast<Walk*>(arg);
  int is_exact = 0; // for the interrupted function, all others are inside of a call
  const std::uintptr_t ip = _Unwind_GetIPInfo(context, &is_exact);
  walk.is_outside = walk.is_outside || is_exact != 0;
  if (!walk.is_outside || ip == 0) // the outermost frame returns to nowhere
    return _URC_NO_REASON;

  const std::size_t n = walk.count++;
  Frame& frame = n < MAX_INNER_FRAMES ? sample.inner[n] : sample.outer[n % MAX_OUTER_FRAMES];
  frame.ip = ip;
  frame.sp = _Unwind_GetCFA(context);
  for (std::size_t i = 0; i < SAVED_REGISTERS; ++i)
    frame.saved[i] = _Unwind_GetGR(context, SAVED_NUMBERS[i]);

  if (loop_function.holds(ip))
    sample.loop_frame = n;
  return _URC_NO_REASON;
}

// The frames of the framework between the loop and the callback, and some more. A sanitizer would take what lies
// between their variables for a mistake.
[[gnu::no_sanitize_address]] static void copy_stack()
{
  sample.stack_words = 0;
  if (!sample.has_frame(sample.loop_frame))
    return;

  const std::uintptr_t end = sample.frame(sample.loop_frame).sp;
  const std::uintptr_t begin = std::max(sample.frame(0).sp, end - MAX_STACK_WORDS * sizeof(std::uintptr_t));
  sample.stack_begin = begin;
  sample.stack_words = (end - begin) / sizeof(std::uintptr_t);
  const std::uintptr_t* const words = reinterpret_cast<const std::uintptr_t*>(begin);
  for (std::size_t i = 0; i < sample.stack_words; ++i)
    sample.stack[i] = words[i];
}

static void fill_sample(bool is_waiting)
{
  sample.is_waiting = is_waiting;
  sample.loop_frame = SIZE_MAX;

  Walk walk = {false, 0};
  (void)_Unwind_Backtrace(note_frame, &walk); // ends early where a function has no table
  sample.frame_count = walk.count;
  sample.loop_frame = std::min(sample.loop_frame, walk.count);
  copy_stack();
}

#if defined(__x86_64__)
static bool is_in_reactor(greg_t address)
{
  const std::uintptr_t at = static_cast<std::uintptr_t>(address);

  return at >= reactor_begin && at < reactor_end;
}

static void clear_descriptors(greg_t set, greg_t count)
{
  enum { WORD_BITS = 64 };
  if (is_in_reactor(set))
    std::memset(reinterpret_cast<void*>(set), 0, static_cast<std::size_t>(count + WORD_BITS - 1) / WORD_BITS * 8);
}
#endif

// The interrupted thread may just have begun to wait for events. An interrupted wait ends the loop of a thread. Here
// the wait ends as if its time were over, and the loop waits anew. Returns whether the thread was waiting.
static bool keep_in_loop([[maybe_unused]] void* context)
{
#if defined(__x86_64__)
  greg_t* const registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const unsigned char* const next = reinterpret_cast<const unsigned char*>(registers[REG_RIP]);
  // The result comes first: only a few places in a program have it, and their code can be read backwards.
  if (registers[REG_RAX] != -EINTR || !is_in_reactor(registers[REG_RSI]) || next[-2] != 0x0f || next[-1] != 0x05)
    return false;

  if (waits_in_select)
    for (const int set : {REG_RSI, REG_RDX, REG_R10})
      clear_descriptors(registers[set], registers[REG_RDI]);
  registers[REG_RAX] = 0;
  return true;
#else
  return false;
#endif
}

static void sample_here(int, siginfo_t* info, void* context)
{
  const int error = errno;
  const bool is_waiting = keep_in_loop(context);

  int asked = ASKED;
  if (info->si_code == SI_QUEUE && info->si_value.sival_int == request &&
      state.compare_exchange_strong(asked, TAKING)) {
    fill_sample(is_waiting);
    state = TAKEN;
    (void)sem_post(&taken);
  }
  errno = error;
}

// ---- In the guard's thread

int open_sampler()
{
  if (sample_signal != 0)
    return sample_signal;

  // The unwinder prepares itself at its first use, and an exception may have been thrown never before.
  Walk nowhere = {false, 0};
  sample.loop_frame = 0;
  (void)_Unwind_Backtrace(note_frame, &nowhere);
  (void)sem_init(&taken, 0, 0); // cannot fail with these arguments
  loop_function = find_loop_function();

  for (int signo = SIGRTMAX; signo >= SIGRTMIN; --signo) {
    struct sigaction present = {};
    if (sigaction(signo, nullptr, &present) != 0 || present.sa_handler != SIG_DFL)
      continue;

    struct sigaction action = {};
    action.sa_sigaction = sample_here;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigfillset(&action.sa_mask); // no other signal handler makes the sample wait
    for (const int fault : {SIGILL, SIGSEGV, SIGFPE, SIGBUS, SIGABRT})
      sigdelset(&action.sa_mask, fault);
    if (sigaction(signo, &action, nullptr) == 0)
      return sample_signal = signo;
  }
  return 0;
}

void set_reactor_memory(const Reactor_Memory& memory)
{
  reactor_begin = memory.begin;
  reactor_end = memory.end;
  waits_in_select = memory.waits_in_select;
}

static bool ask(pid_t tid, int number)
{
  siginfo_t info = {};
  info.si_signo = sample_signal;
  info.si_code = SI_QUEUE;
  info.si_pid = getpid();
  info.si_uid = getuid();
  info.si_value.sival_int = number;
  return syscall(SYS_rt_tgsigqueueinfo, getpid(), tid, sample_signal, &info) == 0;
}

static bool wait_for_answer()
{
  const timespec until = at_msec(now_msec() + PATIENCE_MSEC);
  int result;
  do
    result = sem_clockwait(&taken, CLOCK_MONOTONIC, &until);
  while (result != 0 && errno == EINTR);
  return result == 0;
}

const Sample* take_sample(pid_t tid)
{
  while (sem_trywait(&taken) == 0)
    ; // an answer that came too late
  if (state == TAKING)
    return nullptr; // a thread that gets no processor is still in the middle of it

  const int number = ++request;
  state = ASKED;
  if (ask(tid, number) && wait_for_answer() && state == TAKEN)
    return &sample;

  int asked = ASKED;
  if (state.compare_exchange_strong(asked, FREE))
    return nullptr;
  return state == TAKEN ? &sample : nullptr;
}

void signal_thread(pid_t tid, int signo)
{
  (void)syscall(SYS_tgkill, getpid(), tid, signo); // the thread may just have ended
}
