#ifndef STARTER_INTERRUPTED_H
#define STARTER_INTERRUPTED_H

/// @file
/// Two guards that a signal handler needs to log where it interrupts a thread. Any thread, in signal handlers.

#include <ace/Log_Msg.h>

/// While a guard lives, `operator new` of its thread takes memory from a reserve instead of the heap.
///
/// A record takes memory, and the interrupted thread may be in the middle of changing the heap. Without the reserve,
/// about one termination in a hundred that arrives while services load corrupts the heap instead of being served.
/// Memory that the reserve cannot give, because it is used up or the piece is too big, still comes from the heap.
/// Any memory may be deleted anywhere, at any time. Guards nest.
class Handler_Memory_Guard
{
public:
  Handler_Memory_Guard();
  ~Handler_Memory_Guard();

  Handler_Memory_Guard(const Handler_Memory_Guard&) = delete;
  Handler_Memory_Guard& operator=(const Handler_Memory_Guard&) = delete;
};

/// Puts aside the record that the interrupted thread is making, and puts it back when the signal handler returns.
///
/// The framework builds all records of a thread in one buffer. Without this, a signal handler's record would overwrite
/// the interrupted one and be logged twice.
class Interrupted_Record
{
public:
  Interrupted_Record();
  ~Interrupted_Record();

  Interrupted_Record(const Interrupted_Record&) = delete;
  Interrupted_Record& operator=(const Interrupted_Record&) = delete;

private:
  ACE_Log_Msg& log_;
  const int line_;
  const int status_;
  const int error_;
  char text_[ACE_MAXLOGMSGLEN + 1];
  char file_[512]; // the longest path of a source file that is kept, of the program and of services
};

#endif // STARTER_INTERRUPTED_H
