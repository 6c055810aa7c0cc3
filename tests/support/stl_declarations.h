#ifndef TESTS_SUPPORT_STL_DECLARATIONS_H
#define TESTS_SUPPORT_STL_DECLARATIONS_H

// Include this before every other header: <functional> instantiates std::max, and a template that has been instantiated
// can no longer be declared as specialised.
#include <array>

/// The specialisations that the program defines and services bind to. With these declarations a translation unit
/// contains no code of its own for them.
namespace std
{
template <>
const unsigned long& max<unsigned long>(const unsigned long&, const unsigned long&);
template <>
const long& max<long>(const long&, const long&);
template <>
void swap<unsigned long>(unsigned long&, unsigned long&) noexcept;
} // namespace std

#endif // TESTS_SUPPORT_STL_DECLARATIONS_H
