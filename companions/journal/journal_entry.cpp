#include "companions/journal/journal_entry.h"

#include <charconv>
#include <cstdint>
#include <cstring>

#include <endian.h>

void Journal_Entry::add_part(std::string_view part)
{
  parts_[count_].iov_base = const_cast<char*>(part.data()); // nobody writes through it
  parts_[count_].iov_len = part.size();
  ++count_;
  size_ += part.size();
}

void Journal_Entry::add_text(std::string_view name, std::string_view value)
{
  if (!has_room())
    return;

  // This form takes a value with any bytes: "NAME", a newline, the length, the value and a newline.
  char* const length = next_bytes();
  const std::uint64_t little_endian = htole64(value.size());
  std::memcpy(length, &little_endian, sizeof little_endian);

  add_part(name);
  add_part("\n");
  add_part({length, sizeof little_endian});
  add_part(value);
  add_part("\n");
}

void Journal_Entry::add_number(std::string_view name, unsigned long value)
{
  if (!has_room())
    return;

  char* const digits = next_bytes();
  const char* const end = std::to_chars(digits, digits + BYTES_OF_FIELD, value).ptr; // takes no memory, knows no locale

  add_part(name);
  add_part("=");
  add_part({digits, static_cast<std::size_t>(end - digits)});
  add_part("\n");
}
