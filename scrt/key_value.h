#ifndef SCRT_KEY_VALUE_H
#define SCRT_KEY_VALUE_H

/// @file
/// These tables are static and are searched by name.

#include <cstring>

/// One entry of a static name/value table. A null `key` ends the table.
template <typename T>
struct Key_Value_T
{
  const char* key; ///< zero-terminated, not owned; null in the entry that ends the table
  T value;         ///< the value of the key; in the entry that ends the table, the value of a miss
};

/// Returns the first entry of `table` whose key equals `key` byte for byte, else the entry that ends the table. The
/// result is never null, so a caller can read its value: for a miss, that is the value of the entry that ends the
/// table. `T` is the entry type. A null `key` matches nothing. Any thread, as long as nobody writes the table.
template <typename T>
T* get_key_value_entry(T* table, const char* key)
{
  T* i = table;
  while (i->key && !(key && std::strcmp(i->key, key) == 0))
    ++i;

  return i;
}

#endif // SCRT_KEY_VALUE_H
