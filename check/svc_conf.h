#ifndef CHECK_SVC_CONF_H
#define CHECK_SVC_CONF_H

#include <string>
#include <vector>

/// The faults that the string of parameters may have, beyond what it says.
enum class String_Problem {
  NONE,
  BEGINS_IN_WORD,     ///< a word goes before the quote without a blank, and is lost or becomes part of it
  CUT,                ///< a character that is not printable ends the search for its last quote
  QUOTE_TAKEN_IN,     ///< there are quotes of its own kind in it
  COMMENT_TAKEN_IN,   ///< it goes on into the comment behind it
  DIRECTIVE_TAKEN_IN, ///< it goes on into the directive behind it, which does not exist therefore
};

/// A directive of a configuration file that the framework would act on.
struct Directive
{
  enum Verb { DYNAMIC, STATIC, SUSPEND, RESUME, REMOVE, STREAM };
  enum Type { SERVICE_OBJECT, MODULE, STREAM_OBJECT };
  enum Factory { OBJECT, FUNCTION, STATIC_FUNCTION };

  Verb verb = DYNAMIC;
  std::string name; ///< of the service; for STREAM the name of the stream that the modules are meant for
  int line = 0;
  bool in_stream = false; ///< stands within the braces of the stream before it
  /// An error follows within its braces: neither the stream nor a module is made. The verb is STREAM then.
  bool is_cut_off = false;

  bool has_stray_braces = false; ///< braces follow that have no place there, and are an error

  Type type = SERVICE_OBJECT; ///< this and the following members belong to DYNAMIC only, apart from the parameters
  Factory factory = OBJECT;
  std::string library;
  std::string symbol;
  bool is_inactive = false; ///< the service is there, but suspended
  bool has_parameters = false;
  std::string parameters;
  String_Problem string_problem = String_Problem::NONE; ///< of the parameters
  std::string odd_character;                            ///< the name of the character that causes it, if one does
};

/// A place where the framework's parser stops or stumbles.
struct Syntax_Error
{
  int line;
  std::string message;
  int logged_line;           ///< the line that the framework names in its record, 0 when it logs none
  bool is_follow_on = false; ///< another error has the same cause
};

/// The content of a configuration file.
struct Svc_Conf
{
  std::vector<Directive> directives;
  std::vector<Syntax_Error> errors;
};

#endif // CHECK_SVC_CONF_H
