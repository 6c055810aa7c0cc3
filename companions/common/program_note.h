#ifndef COMPANIONS_COMMON_PROGRAM_NOTE_H
#define COMPANIONS_COMMON_PROGRAM_NOTE_H

/// @file
/// The notes of the running executable, by which the program tells services about itself without exporting a symbol.
/// These functions may be called in any thread; they take the lock of the dynamic loader.

/// The function of the program that tells the threads in the loop and their turns: see starter/loop_turns.h.
using starter_loops_t = unsigned (*)(int* tids, unsigned long* turns, unsigned size);

/// Find that function. Null for a program that has no such note.
starter_loops_t find_starter_loops();

/// The function of the program that tells how many reloads there have been: see starter/hang_up.h.
using starter_reloads_t = void (*)(unsigned* begun, unsigned* ended);

/// Find that function. Null for a program that has no such note.
starter_reloads_t find_starter_reloads();

/// The function of the program that has a function called in the main thread: see starter/main_call.h.
using starter_call_t = int (*)(void (*function)(void*), void* argument);

/// Find that function. Null for a program that has no such note.
starter_call_t find_starter_call();

/// The version and the revision of the program, such as "0.1.0" and "41c878c215a1": see starter/version_note.h. Both
/// texts are "unknown" for a program that has no such note, and live as long as the process.
struct Program_Version
{
  const char* version;
  const char* revision;
};
Program_Version find_program_version();

#endif // COMPANIONS_COMMON_PROGRAM_NOTE_H
