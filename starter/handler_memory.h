#ifndef STARTER_HANDLER_MEMORY_H
#define STARTER_HANDLER_MEMORY_H

/// While it lives, `operator new` of this thread takes memory from a reserve instead of the heap.
///
/// For signal handlers, which log where they interrupt a thread: a record takes memory, and the interrupted thread may
/// be in the middle of changing the heap. Without this, about one termination in a hundred that arrives while services
/// load corrupts the heap instead of being served.
/// Memory that the reserve cannot give, because it is used up or the piece is too big, still comes from the heap.
/// Any memory may be deleted anywhere, at any time. Guards nest. Any thread, in signal handlers too.
class Handler_Memory_Guard
{
public:
  Handler_Memory_Guard();
  ~Handler_Memory_Guard();

  Handler_Memory_Guard(const Handler_Memory_Guard&) = delete;
  Handler_Memory_Guard& operator=(const Handler_Memory_Guard&) = delete;
};

#endif // STARTER_HANDLER_MEMORY_H
