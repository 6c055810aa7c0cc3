#ifndef COMPANIONS_COMMON_PROGRAM_NOTE_H
#define COMPANIONS_COMMON_PROGRAM_NOTE_H

/// The function of the program that tells the threads in the loop and their turns: see starter/loop_turns.h.
using starter_loops_t = unsigned (*)(int* tids, unsigned long* turns, unsigned size);

/// Find that function by the note of the running executable. Null for a program that has none. Any thread; takes the
/// lock of the dynamic loader.
starter_loops_t find_starter_loops();

#endif // COMPANIONS_COMMON_PROGRAM_NOTE_H
