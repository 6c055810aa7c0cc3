#ifndef TESTS_SUPPORT_FAKE_JOURNAL_H
#define TESTS_SUPPORT_FAKE_JOURNAL_H

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// The fields of an entry by their names.
using Entry_Fields = std::map<std::string, std::string>;

/// A socket that takes entries in the native protocol, in place of the journal. The system lets few entries wait in it,
/// perhaps ten; whoever sends more at a time may lose some.
class Fake_Journal
{
public:
  /// Listen at `path`. A thread fetches the entries at once, unless `is_busy`: then they wait for a call.
  explicit Fake_Journal(const std::string& path, bool is_busy = false);
  ~Fake_Journal();

  Fake_Journal(const Fake_Journal&) = delete;
  Fake_Journal& operator=(const Fake_Journal&) = delete;

  /// All entries by now, those of former calls included. The test fails for a message that breaks the protocol.
  std::vector<Entry_Fields> entries();

  /// The entries whose message begins with `start`.
  std::vector<Entry_Fields> entries_with(const std::string& start);

  /// Wait until there are `count` entries whose message begins with `start`. False when a minute passes before that.
  bool wait_for(const std::string& start, unsigned count = 1);

  /// The number of entries that came in a file.
  unsigned files() const { return files_; }

  /// The sum of the numbers of lost records that the entries tell.
  unsigned long lost();

private:
  void fetch();

  std::string path_;
  int fd_ = -1;
  std::mutex mutex_; ///< guards entries_ and the socket
  std::vector<Entry_Fields> entries_;
  std::atomic<unsigned> files_{0};
  std::atomic<bool> is_ended_{false};
  std::thread reader_;
};

/// The fields in `message`, which is in the native protocol. The test fails if it is not.
Entry_Fields parse_entry(const std::string& message);

/// The number in a message "number N.", which the service "scribe" writes; -1 for another message.
long scribe_number(const std::string& message);

#endif // TESTS_SUPPORT_FAKE_JOURNAL_H
