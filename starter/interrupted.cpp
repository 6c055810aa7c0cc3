#include "starter/interrupted.h"

#include <ace/OS_NS_string.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <new>

// A record takes two pieces of a little over 4 KiB at a time, and a handler may interrupt a handler. Pages of the
// reserve that are never used cost nothing.
enum { PIECE_SIZE = 8192, PIECES = 64 };

static thread_local int guards; // of this thread, alive
alignas(std::max_align_t) static char reserve[PIECES][PIECE_SIZE];
static std::atomic<bool> taken[PIECES];

Handler_Memory_Guard::Handler_Memory_Guard()
{
  ++guards;
}

Handler_Memory_Guard::~Handler_Memory_Guard()
{
  --guards;
}

[[maybe_unused]] static void* take_piece(std::size_t size)
{
  if (size > PIECE_SIZE)
    return nullptr;

  for (std::size_t i = 0; i < PIECES; ++i)
    if (!taken[i].exchange(true))
      return reserve[i];
  return nullptr;
}

// False for memory of the heap.
[[maybe_unused]] static bool give_back(const void* p)
{
  const char* const piece = static_cast<const char*>(p);
  if (std::less<const char*>()(piece, reserve[0]) || !std::less<const char*>()(piece, reserve[0] + sizeof reserve))
    return false;

  taken[static_cast<std::size_t>(piece - reserve[0]) / PIECE_SIZE] = false;
  return true;
}

// A sanitizer brings new and delete of its own, and keeps books on which of them memory came from.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// The functions below stand for all forms of new and delete in the process: the library's other forms call them,
// except those for over-aligned types, which do not touch the reserve.

void* operator new(std::size_t size)
{
  if (guards != 0)
    if (void* const piece = take_piece(size))
      return piece;

  for (;;) {
    if (void* const p = std::malloc(size != 0 ? size : 1))
      return p;
    const std::new_handler handler = std::get_new_handler();
    if (!handler)
      throw std::bad_alloc();
    handler();
  }
}

void operator delete(void* p) noexcept
{
  if (!give_back(p))
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept
{
  operator delete(p);
}

#endif

// The log of the thread, which is made at its first use.
static ACE_Log_Msg& get_log()
{
  const Handler_Memory_Guard memory;

  return *ACE_Log_Msg::instance();
}

Interrupted_Record::Interrupted_Record()
    : log_(get_log()), line_(log_.linenum()), status_(log_.op_status()), error_(log_.errnum())
{
  ACE_OS::strsncpy(text_, log_.msg(), sizeof text_);
  ACE_OS::strsncpy(file_, log_.file(), sizeof file_);
}

Interrupted_Record::~Interrupted_Record()
{
  log_.msg(text_);
  log_.file(file_);
  log_.linenum(line_);
  log_.op_status(status_);
  log_.errnum(error_);
}
