#ifndef COMPANIONS_JOURNAL_JOURNAL_ENTRY_H
#define COMPANIONS_JOURNAL_JOURNAL_ENTRY_H

#include <cstddef>
#include <string_view>

#include <sys/uio.h>

/// An entry in the native protocol of systemd's journal, as parts for writev(2) or sendmsg(2).
///
/// The protocol is written by hand: the client library of systemd takes memory and may block, and records are made in
/// signal handlers too. Nothing here takes memory or a lock. Any thread, in signal handlers too.
class Journal_Entry
{
public:
  /// Add a field with a text that may hold any bytes. Both `name` and `value` must outlive the entry.
  void add_text(std::string_view name, std::string_view value);

  /// Add a field with a number. `name` must outlive the entry.
  void add_number(std::string_view name, unsigned long value);

  /// The parts, of which there are count(), and the number of bytes in them. They are valid as long as the entry is,
  /// and until the next field is added.
  iovec* parts() { return parts_; }
  std::size_t count() const { return count_; }
  std::size_t size() const { return size_; }

  /// The number of fields that an entry has room for. Further ones are left out.
  enum { MAX_FIELDS = 12 };

private:
  enum { PARTS_OF_FIELD = 5, BYTES_OF_FIELD = 24 };

  bool has_room() const { return fields_ < MAX_FIELDS; }
  void add_part(std::string_view part);
  char* next_bytes() { return bytes_ + fields_++ * BYTES_OF_FIELD; }

  iovec parts_[MAX_FIELDS * PARTS_OF_FIELD];
  std::size_t count_ = 0;
  std::size_t size_ = 0;
  char bytes_[MAX_FIELDS * BYTES_OF_FIELD]; // the length of a text, or a number as a text
  std::size_t fields_ = 0;
};

#endif // COMPANIONS_JOURNAL_JOURNAL_ENTRY_H
