#include "starter/stl_exports.h"

#include <array> // for std::max and std::swap, instead of <algorithm>, which has the header told of below in it

// Services bind to these at load time: they are part of what the program offers. They stand above every other header
// because <functional> instantiates std::max for unsigned long, and after that it is too late to specialise it.
namespace std
{
// Of equal values the second one, other than the library's own rule. Kept: only the identity of the result differs.
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

// Use alone leaves none of this in an optimised executable: all of it is inlined.
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
