#ifndef SCRT_KEY_VALUE_H
#define SCRT_KEY_VALUE_H

/// @file
/// Static tables that are looked up by name.

#include <cstring>

/// One entry of a static name/value table. A null `key` ends the table.
template <typename T>
struct Key_Value_T
{
  const char* key; ///< zero-terminated, not owned; null in the entry that ends the table
  T value;         ///< what the key stands for; in the entry that ends the table, what a miss stands for
};

/// The first entry of `table` whose key equals `key` byte for byte, else the entry that ends the table.
/// Never null, so a caller reads the value of what it gets: for a miss, that of the terminator.
/// `T` is the entry type. A null `key` matches nothing. Any thread, as long as nobody writes the table.
template <typename T>
T* get_key_value_entry(T* table, const char* key)
{
  T* i = table;
  while (i->key && !(key && std::strcmp(i->key, key) == 0))
    ++i;

  return i;
}

#endif // SCRT_KEY_VALUE_H
