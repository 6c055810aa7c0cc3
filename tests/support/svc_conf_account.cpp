#include "tests/support/svc_conf_account.h"

#include "check/svc_conf_parser.h"
#include "tests/support/log_capture.h"

#include <ace/ACE.h>
#include <ace/Service_Gestalt.h>

#include <cstring>

// A phrase tells what an account says for a record that begins so and has these texts around a name.
struct Phrase
{
  const char* begin; // behind the process and thread, if they are there
  const char* before;
  const char* after;
  const char* said;
};

static const Phrase DEEDS[] = {
    {"SG::initialize - repo=", ", name=", " - looking up in the repo\n", "dynamic "},
    {"SG::initialize - () repo=", ", looking up static service '", "' to initialize\n", "static "},
    {"did suspend on ", "did suspend on ", ", error = ", "suspend "},
    {"did resume on ", "did resume on ", ", error = ", "resume "},
    {"Remove_Node::apply - did remove on ", "did remove on ", ", error = ", "remove "},
    {"did operations on stream ", "did operations on stream ", ", error = ", "stream "},
    {"LN::open_dll - path=", "path=", "\n", "library "}};
static const Phrase ERRORS[] = {{"[error ", "] on line ", ": ", "error on line "}};

static std::string without_process(const std::string& record)
{
  return record.compare(0, 5, "ACE (") == 0 ? record.substr(record.find(") ") + 2) : record;
}

// Return a line of the account, or nothing for a record of something else.
static std::string said_of(const Phrase& phrase, const std::string& record)
{
  if (record.compare(0, std::strlen(phrase.begin), phrase.begin) != 0)
    return "";

  const std::size_t begin = record.find(phrase.before) + std::strlen(phrase.before);
  const std::size_t end = record.rfind(phrase.after);
  return end != std::string::npos && begin <= end ? phrase.said + record.substr(begin, end - begin) + '\n' : "";
}

template <std::size_t N>
static std::string said_of(const Phrase (&phrases)[N], const Log_Capture& log)
{
  std::string account;
  for (const Record& record : log.records())
    for (const Phrase& phrase : phrases)
      account += said_of(phrase, without_process(record.text));
  return account;
}

std::string framework_account(const std::string& path)
{
  const Log_Capture log;
  ACE::debug(true);
  ACE_Service_Gestalt(64, true, true).process_file(path.c_str());
  ACE::debug(false);
  return said_of(DEEDS, log) + said_of(ERRORS, log);
}

std::string parser_account(const std::string& text)
{
  static const char* const VERBS[] = {"dynamic ", "static ", "suspend ", "resume ", "remove ", "stream "};
  const Svc_Conf conf = parse_svc_conf(text);

  std::string account;
  for (const Directive& directive : conf.directives) {
    if (directive.in_stream || directive.is_cut_off)
      continue; // the framework gives up on the stream before that, as it has not been loaded
    account += VERBS[directive.verb] + directive.name + '\n';
    if (directive.verb == Directive::DYNAMIC && directive.factory != Directive::STATIC_FUNCTION)
      account += "library " + directive.library + '\n';
  }
  for (const Syntax_Error& error : conf.errors)
    if (error.logged_line > 0)
      account += "error on line " + std::to_string(error.logged_line) + '\n';
  return account;
}
