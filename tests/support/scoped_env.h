#ifndef TESTS_SUPPORT_SCOPED_ENV_H
#define TESTS_SUPPORT_SCOPED_ENV_H

#include <optional>
#include <string>

#include <stdlib.h>

/// An environment variable that has another value, or none for a null `value`, as long as this object lives.
class Scoped_Env
{
public:
  Scoped_Env(const std::string& name, const char* value) : name_(name)
  {
    if (const char* const previous = getenv(name_.c_str()))
      previous_ = previous;
    set(value);
  }

  ~Scoped_Env() { set(previous_ ? previous_->c_str() : nullptr); }

  Scoped_Env(const Scoped_Env&) = delete;
  Scoped_Env& operator=(const Scoped_Env&) = delete;

private:
  void set(const char* value) const
  {
    if (value)
      setenv(name_.c_str(), value, 1);
    else
      unsetenv(name_.c_str());
  }

  const std::string name_;
  std::optional<std::string> previous_;
};

#endif // TESTS_SUPPORT_SCOPED_ENV_H
