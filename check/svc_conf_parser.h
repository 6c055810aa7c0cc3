#ifndef CHECK_SVC_CONF_PARSER_H
#define CHECK_SVC_CONF_PARSER_H

#include <string>
#include <vector>

/// A directive of a configuration file that the framework would act on.
struct Directive
{
  enum Verb { DYNAMIC, STATIC, SUSPEND, RESUME, REMOVE, STREAM };
  enum Type { SERVICE_OBJECT, MODULE, STREAM_OBJECT };
  enum Factory { OBJECT, FUNCTION, STATIC_FUNCTION };

  Verb verb = DYNAMIC;
  std::string name; ///< of the service; for STREAM the one that the modules are meant for
  int line = 0;
  bool in_stream = false; ///< a module of the stream before it

  Type type = SERVICE_OBJECT; ///< this and what follows is of DYNAMIC only, apart from the parameters
  Factory factory = OBJECT;
  std::string library;
  std::string symbol;
  bool has_parameters = false;
  std::string parameters;
};

/// Where the framework's parser stops or stumbles.
struct Syntax_Error
{
  int line;
  std::string message;
  int logged_line; ///< the line that the framework names in its record, 0 when it logs none
};

struct Svc_Conf
{
  std::vector<Directive> directives;
  std::vector<Syntax_Error> errors;
};

/// Read `text`, a configuration file or a single directive, as the framework's parser does, its peculiarities included:
/// a text between quotes goes up to the last such quote in the line; a quote within a word begins such a text, and the
/// word is lost; "#" begins a comment anywhere; a letter and a colon begin a path, as a drive would; after an error,
/// reading goes on at the next word that begins a directive; the end of a file is where a word or quoted text is 4096
/// bytes long, where one is not closed, and at a zero byte. Opens nothing, logs nothing. Any thread.
Svc_Conf parse_svc_conf(const std::string& text);

#endif // CHECK_SVC_CONF_PARSER_H
