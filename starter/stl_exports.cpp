#include "starter/stl_exports.h"

#include <array> // brings std::max and std::swap, but not <functional>, which <algorithm> includes

// Services bind to these functions at load time: the functions are part of what the program offers. They stand above
// every other header because <functional> instantiates std::max for unsigned long, which can no longer be specialised
// after that.
namespace std
{
// For equal values this returns the second argument, where the library returns the first. Kept: only the address
// differs.
template <>
[[gnu::visibility("default")]] const unsigned long& max<unsigned long>(const unsigned long& l, const unsigned long& r)
{
  return r < l ? l : r;
}

template <>
[[gnu::visibility("default")]] const long& max<long>(const long& l, const long& r)
{
  return r < l ? l : r;
}

template <>
[[gnu::visibility("default")]] void swap<unsigned long>(unsigned long& l, unsigned long& r) noexcept
{
  const unsigned long t = l;
  l = r;
  r = t;
}
} // namespace std

#include "scrt/environ.h"

#include <functional>
#include <string>

namespace std
{
// The comparator has no state, so there is nothing to exchange.
template <>
[[gnu::visibility("default")]] void swap<less<string>>(less<string>&, less<string>&) noexcept
{
}

// Instantiated explicitly: an optimised build inlines every use and emits no symbol.
template struct less<string>;
template string::basic_string(const char*, const allocator<char>&);
template string::~basic_string();
} // namespace std

void init_stl_symbols()
{
  const std::string foo("foo");
  const std::string bar("bar");

  (void)std::less<std::string>()(foo, bar); // only instantiated, never asked
}
