#ifndef COMPANIONS_GUARD_SAMPLE_H
#define COMPANIONS_GUARD_SAMPLE_H

#include <cstddef>
#include <cstdint>

enum { MAX_INNER_FRAMES = 64, MAX_OUTER_FRAMES = 64, MAX_STACK_WORDS = 1024, SAVED_REGISTERS = 6 };

/// A function on a stack: where it goes on, its stack pointer there, and the registers that functions keep for their
/// callers as they are there.
struct Frame
{
  std::uintptr_t ip;
  std::uintptr_t sp;
  std::uintptr_t saved[SAVED_REGISTERS];
};

/// The things that a thread has told of itself, at the moment that a signal interrupted it.
struct Sample
{
  bool is_waiting; ///< the signal has interrupted the reactor's wait for events

  std::size_t frame_count; ///< those of the stack, from the interrupted function outwards
  Frame inner[MAX_INNER_FRAMES];
  Frame outer[MAX_OUTER_FRAMES]; ///< frame n for the largest n, at n modulo the size, unless it is in `inner`

  std::size_t loop_frame; ///< the number of the frame that runs the event loop; `frame_count` if there is none

  // The end of the stack below the frame of the loop: the innermost of these words stands at `stack_begin`.
  std::uintptr_t stack_begin;
  std::size_t stack_words;
  std::uintptr_t stack[MAX_STACK_WORDS];

  const Frame& frame(std::size_t n) const { return n < MAX_INNER_FRAMES ? inner[n] : outer[n % MAX_OUTER_FRAMES]; }

  /// Whether the frame of this number is still there: of a deep stack the middle is forgotten.
  bool has_frame(std::size_t n) const
  {
    return n < frame_count && (n < MAX_INNER_FRAMES || n + MAX_OUTER_FRAMES >= frame_count);
  }
};

#endif // COMPANIONS_GUARD_SAMPLE_H
