#ifndef CTL_ANSWER_H
#define CTL_ANSWER_H

#include <nlohmann/json.hpp>

#include <string>

using Json = nlohmann::json;

/// Reads the members of JSON objects with their types. The first member that is missing or of another type is told by
/// problem(); each function then returns an empty value. The objects come from a process that may be broken: none of
/// these functions throws. One thread.
class Reader
{
public:
  std::string text(const Json& object, const char* name);
  long long number(const Json& object, const char* name); ///< a fraction is cut off
  bool flag(const Json& object, const char* name);
  const Json& list(const Json& object, const char* name); ///< of objects; an empty list instead of anything else

  /// The elements of a list of texts, joined by commas.
  std::string names(const Json& object, const char* name);

  /// One sentence about the first problem, such as "the member 'pid' is missing or is no number"; empty without one.
  const std::string& problem() const { return problem_; }

private:
  const Json* find(const Json& object, const char* name, const char* type, bool (Json::*is_type)() const noexcept);
  void complain(const char* name, const char* type);

  std::string problem_;
};

/// An answer of the process.
struct Answer
{
  Json json = Json::object();
  bool is_done = false; ///< its member "ok"
  std::string error;    ///< its member "error", unless it is done
};

/// Take the line `line` apart. Returns one sentence about what is wrong with it, or an empty one. Throws nothing but
/// for want of memory. Any thread.
std::string parse_answer(const std::string& line, Answer& answer);

/// The line of JSON in a form that means the same, and has no byte that a terminal would take for a command. The line
/// has to be valid. Any thread.
std::string make_harmless(const std::string& line);

/// The object as one such line, with the newline. Bytes that are no UTF-8 become U+FFFD. Any thread.
std::string make_line(const Json& object);

#endif // CTL_ANSWER_H
