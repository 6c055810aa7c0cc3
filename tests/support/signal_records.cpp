#include "tests/support/signal_records.h"

#include <cstring>

std::string caught_in(int signo, const std::string& thread)
{
  return "Signal " + std::to_string(signo) + " (" + strsignal(signo) + ") caught in [" + thread + "]";
}

std::vector<Logged> records_with(const Starter_Process& starter, const std::string& text)
{
  std::vector<Logged> found;
  for (const Record& record : starter.records())
    if (record.text.find(text) != std::string::npos)
      found.push_back(with_file(record));
  return found;
}
