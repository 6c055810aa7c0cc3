// The obvious way is a class that is derived from the framework's and overrides its removals. The table of virtual
// functions of such a class names all functions of the framework's table, some sixty, and the loader looks each of them
// up at the start of every process, whichever reactor it runs: this would be a quarter of all that the program adds to
// the start of a host. So the object of the framework's class gets a table that is made when a reactor of this kind is:
// a copy of the table that it has, in which the removals are exchanged.

#include "starter/counting_dev_poll_reactor.h"

#include "scrt/make_reactor.h"

#include <ace/Dev_Poll_Reactor.h>
#include <ace/Event_Handler.h>
#include <ace/Handle_Set.h>
#include <ace/OS_Errno.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

class Dev_Poll_Token : private ACE_Dev_Poll_Reactor
{
public:
  // Wakes the thread that waits for events with the token of `reactor`. No callback runs while a thread holds it, so
  // that this does not wait for one.
  static void let_pass(ACE_Dev_Poll_Reactor& reactor)
  {
    const ACE_Errno_Guard errno_guard(errno);
    Token_Guard token(reactor.*(&Dev_Poll_Token::token_));

    (void)token.acquire(); // without a time limit it fails only for want of a lock
  }
};

// The event handler of `handle`, if it counts its references.
static ACE_Event_Handler_var find_counted(ACE_Dev_Poll_Reactor& reactor, ACE_HANDLE handle)
{
  ACE_Event_Handler* const handler = reactor.find_handler(handle); // counts a reference for us
  const bool is_counted =
      handler && handler->reference_counting_policy().value() == ACE_Event_Handler::Reference_Counting_Policy::ENABLED;

  return ACE_Event_Handler_var(is_counted ? handler : nullptr);
}

static int remove_by_handle(ACE_Dev_Poll_Reactor* reactor, ACE_HANDLE handle, ACE_Reactor_Mask mask)
{
  const ACE_Event_Handler_var kept = find_counted(*reactor, handle);

  const int result = reactor->ACE_Dev_Poll_Reactor::remove_handler(handle, mask);
  if (kept.handler())
    Dev_Poll_Token::let_pass(*reactor);
  return result;
}

static int remove_by_handler(ACE_Dev_Poll_Reactor* reactor, ACE_Event_Handler* handler, ACE_Reactor_Mask mask)
{
  return remove_by_handle(reactor, handler->get_handle(), mask);
}

static int remove_by_set(ACE_Dev_Poll_Reactor* reactor, const ACE_Handle_Set& handles, ACE_Reactor_Mask mask)
{
  ACE_Handle_Set_Iterator next(handles);
  for (ACE_HANDLE handle = next(); handle != ACE_INVALID_HANDLE; handle = next())
    if (remove_by_handle(reactor, handle, mask) == -1)
      return -1;

  return 0;
}

// The rest is laid down by the Itanium C++ ABI, by which the framework's library is compiled too: an object begins with
// a pointer to the first function in the table of its class. Two more words of the table lie before that. A pointer to
// a virtual member function holds the distance of its place from the first function, and at most a mark in the lowest
// bit. A member function is called like a function whose first parameter is the object.
using Word = std::uintptr_t;
enum { WORDS_BEFORE_FUNCTIONS = 2 };

// A class that adds a virtual function, which gets the first place after those of the framework's table. There is no
// object of it, and no definition of the function.
class One_More_Function : public ACE_Dev_Poll_Reactor
{
public:
  virtual void added();
};

template <typename Function>
static std::size_t place_of(Function function)
{
  Word distance;
  std::memcpy(&distance, &function, sizeof distance);
  return distance / sizeof(Word);
}

template <typename... Args>
static void exchange(Word* functions, int (ACE_Dev_Poll_Reactor::*framework)(Args...),
                     int (*own)(ACE_Dev_Poll_Reactor*, Args...))
{
  functions[place_of(framework)] = reinterpret_cast<Word>(own);
}

// A table like that of `functions`, with the removals exchanged; null without memory for it.
static Word* make_table(const Word* functions)
{
  const std::size_t size = WORDS_BEFORE_FUNCTIONS + place_of(&One_More_Function::added);
  Word* const table = new (std::nothrow) Word[size];
  if (!table)
    return nullptr;

  std::memcpy(table, functions - WORDS_BEFORE_FUNCTIONS, size * sizeof(Word));
  Word* const own = table + WORDS_BEFORE_FUNCTIONS;
  exchange(own, &ACE_Dev_Poll_Reactor::remove_handler, remove_by_handle);
  exchange(own, &ACE_Dev_Poll_Reactor::remove_handler, remove_by_handler);
  exchange(own, &ACE_Dev_Poll_Reactor::remove_handler, remove_by_set);
  return own;
}

ACE_Reactor* make_counting_dev_poll_reactor()
{
  static Word* own; // for all reactors of this kind, and never deleted: the last one is deleted when the process ends

  std::unique_ptr<ACE_Reactor> reactor(make_reactor<ACE_Dev_Poll_Reactor>());
  if (!reactor)
    return nullptr;

  // Nothing else runs in this kind of reactor yet, and its class has no bases but the one that begins it.
  ACE_Reactor_Impl* const object = reactor->implementation();
  if (!own) {
    Word* functions;
    std::memcpy(&functions, static_cast<void*>(object), sizeof functions);
    own = make_table(functions);
  }
  if (!own) {
    reactor.reset();
    errno = ENOMEM; // set last: closing an implementation overwrites it
    return nullptr;
  }

  std::memcpy(static_cast<void*>(object), &own, sizeof own);
  return reactor.release();
}
