#ifndef CHECK_FINDING_H
#define CHECK_FINDING_H

#include <string>
#include <vector>

/// The kinds of findings, in the order of their names.
enum class Finding_Kind {
  ALTERED_VALUE,
  BAD_SIGNAL,
  BROKEN_STREAM,
  CHANGED_FILES,
  DESCRIPTOR_LIMIT,
  DUPLICATE_SERVICE,
  EMPTY_DIRECTORY,
  EMPTY_FILE,
  EMPTY_STREAM,
  FATAL_DIRECTIVE,
  IGNORED_ARGUMENT,
  IGNORED_MODULE,
  INNER_QUOTE,
  LIBRARY_NOT_LOADED,
  LOST_DIRECTIVE,
  MISNAMED_FILE,
  MISSING_FACTORY,
  MISSING_FUNCTION,
  MISSING_VALUE,
  READ_TWICE,
  REPEATED_FILE,
  SYNTAX_ERROR,
  THREAD_COUNT,
  UNKNOWN_GROUP,
  UNKNOWN_REACTOR,
  UNKNOWN_SERVICE,
  UNKNOWN_USER,
  UNREADABLE_FILE,
  VARIABLE_NOT_SET
};

/// An error costs the host a service, a file, a parameter or its identity. A warning costs it nothing of these: it
/// works, though perhaps not as it was meant to.
enum class Severity { WARNING, ERROR };

struct Kind_Description
{
  const char* name; ///< as it is printed and as the manual page lists it
  Severity severity;
};

/// The description of `kind`. Its name is null for a value that is no kind, so that a loop that counts from 0 up finds
/// every kind. Any thread.
constexpr Kind_Description describe_kind(Finding_Kind kind)
{
  switch (kind) { // without a default, so that the compiler reports a kind that has no name
  case Finding_Kind::ALTERED_VALUE:
    return {"altered-value", Severity::ERROR};
  case Finding_Kind::BAD_SIGNAL:
    return {"bad-signal", Severity::ERROR};
  case Finding_Kind::BROKEN_STREAM:
    return {"broken-stream", Severity::ERROR};
  case Finding_Kind::CHANGED_FILES:
    return {"changed-files", Severity::ERROR};
  case Finding_Kind::DESCRIPTOR_LIMIT:
    return {"descriptor-limit", Severity::ERROR};
  case Finding_Kind::DUPLICATE_SERVICE:
    return {"duplicate-service", Severity::WARNING};
  case Finding_Kind::EMPTY_DIRECTORY:
    return {"empty-directory", Severity::ERROR};
  case Finding_Kind::EMPTY_FILE:
    return {"empty-file", Severity::WARNING};
  case Finding_Kind::EMPTY_STREAM:
    return {"empty-stream", Severity::WARNING};
  case Finding_Kind::FATAL_DIRECTIVE:
    return {"fatal-directive", Severity::ERROR};
  case Finding_Kind::IGNORED_ARGUMENT:
    return {"ignored-argument", Severity::WARNING};
  case Finding_Kind::IGNORED_MODULE:
    return {"ignored-module", Severity::ERROR};
  case Finding_Kind::INNER_QUOTE:
    return {"inner-quote", Severity::WARNING};
  case Finding_Kind::LIBRARY_NOT_LOADED:
    return {"library-not-loaded", Severity::ERROR};
  case Finding_Kind::LOST_DIRECTIVE:
    return {"lost-directive", Severity::ERROR};
  case Finding_Kind::MISNAMED_FILE:
    return {"misnamed-file", Severity::WARNING};
  case Finding_Kind::MISSING_FACTORY:
    return {"missing-factory", Severity::ERROR};
  case Finding_Kind::MISSING_FUNCTION:
    return {"missing-function", Severity::ERROR};
  case Finding_Kind::MISSING_VALUE:
    return {"missing-value", Severity::ERROR};
  case Finding_Kind::READ_TWICE:
    return {"read-twice", Severity::WARNING};
  case Finding_Kind::REPEATED_FILE:
    return {"repeated-file", Severity::WARNING};
  case Finding_Kind::SYNTAX_ERROR:
    return {"syntax-error", Severity::ERROR};
  case Finding_Kind::THREAD_COUNT:
    return {"thread-count", Severity::WARNING};
  case Finding_Kind::UNKNOWN_GROUP:
    return {"unknown-group", Severity::ERROR};
  case Finding_Kind::UNKNOWN_REACTOR:
    return {"unknown-reactor", Severity::WARNING};
  case Finding_Kind::UNKNOWN_SERVICE:
    return {"unknown-service", Severity::ERROR};
  case Finding_Kind::UNKNOWN_USER:
    return {"unknown-user", Severity::ERROR};
  case Finding_Kind::UNREADABLE_FILE:
    return {"unreadable-file", Severity::ERROR};
  case Finding_Kind::VARIABLE_NOT_SET:
    return {"variable-not-set", Severity::WARNING};
  }
  return {nullptr, Severity::ERROR};
}

/// A place in the configuration; a default one is the command line.
struct Place
{
  std::string file; ///< empty: the command line
  int line = 0;     ///< in `file`, from 1; 0: no particular one
};

/// Something that the host would stumble over, refuse or ignore.
struct Finding
{
  Finding_Kind kind;
  Place place;
  std::string message; ///< one line

  const char* kind_name() const { return describe_kind(kind).name; }
  bool is_error() const { return describe_kind(kind).severity == Severity::ERROR; }
};

using Findings = std::vector<Finding>;

#endif // CHECK_FINDING_H
