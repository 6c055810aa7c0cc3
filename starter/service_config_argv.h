#ifndef STARTER_SERVICE_CONFIG_ARGV_H
#define STARTER_SERVICE_CONFIG_ARGV_H

#include <ace/ARGV.h>

#include <cstddef>
#include <memory>

/// The arguments for the service configurator, as the framework's argument vector makes them: it joins the texts into
/// one line, in which it replaces variables, and splits the line again at white space outside of quotes. Texts in which
/// nothing could be replaced, split or unquoted come out as they went in. As long as all of them are such texts, they
/// do not take the way through the line, which is long for thousands of files.
///
/// Texts are not copied. The vector may consist of the texts themselves.
class Service_Config_Argv
{
public:
  /// Without `substitute`, variables stay as they are.
  explicit Service_Config_Argv(bool substitute = true) : line_(substitute) {}

  /// Add a text, which stays one argument in spite of blanks if `quote_arg` says so.
  void append(const char* text, bool quote_arg = false);

  /// How many arguments there are; once whole_argv() has been called.
  int argc() { return is_line_ ? line_.argc() : static_cast<int>(count_); }

  /// The vector, which ends with a null pointer, or null when there was no memory for all of it. It lives as long as
  /// this object and the texts. Once, when everything has been added: asked again after a failure, the framework hands
  /// out a vector that lacks its end.
  char** whole_argv();

private:
  struct Free
  {
    void operator()(const char** texts) const;
  };

  bool make_room();
  bool keep(const char* text);
  void begin_line();

  std::unique_ptr<const char*[], Free> texts_; // with a null pointer at the end; none once there is a line
  std::size_t count_ = 0;
  std::size_t room_ = 0;
  ACE_ARGV line_;
  bool is_line_ = false;
  bool is_whole_ = true; // no text is missing
};

#endif // STARTER_SERVICE_CONFIG_ARGV_H
