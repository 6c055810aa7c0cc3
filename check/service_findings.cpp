#include "check/service_findings.h"

#include "check/library_findings.h"
#include "check/substitution.h"

#include <string>

// The kind and the words for a problem of the string of the parameters.
static Finding describe_string(const Placed_Directive& placed)
{
  const Directive& directive = placed.directive;
  const std::string parameters = "service '" + directive.name + "', parameters: ";
  const std::string last_quote = parameters + "a string goes up to the last quote of its line, ";
  switch (directive.string_problem) {
  case String_Problem::BEGINS_IN_WORD:
    return {Finding_Kind::ALTERED_VALUE, placed.place,
            parameters + "the string begins in a word, behind the first byte of that" +
                (directive.odd_character.empty() ? "" : ": " + directive.odd_character + " is no blank")};
  case String_Problem::CUT:
    return {Finding_Kind::ALTERED_VALUE, placed.place,
            last_quote + "and " + directive.odd_character + " ends the search for that"};
  case String_Problem::COMMENT_TAKEN_IN:
    return {Finding_Kind::ALTERED_VALUE, placed.place, last_quote + "and takes in the comment behind it"};
  case String_Problem::DIRECTIVE_TAKEN_IN:
    return {Finding_Kind::LOST_DIRECTIVE, placed.place,
            last_quote + "and takes in the directive behind it: that one needs a line of its own"};
  case String_Problem::QUOTE_TAKEN_IN:
  case String_Problem::NONE:
    break;
  }
  return {Finding_Kind::INNER_QUOTE, placed.place, last_quote + "and this one holds quotes of its own kind"};
}

static void check_parameters(const Placed_Directive& placed, Findings& findings)
{
  const std::string service = "service '" + placed.directive.name + "', ";
  const String_Problem string = placed.directive.string_problem;
  if (string != String_Problem::NONE && string != String_Problem::QUOTE_TAKEN_IN) {
    findings.push_back(describe_string(placed));
    return; // its words are not those that are meant
  }

  if (const std::string problem = check_left_out(placed.directive.parameters); !problem.empty())
    findings.push_back({Finding_Kind::ALTERED_VALUE, placed.place, service + "parameters: " + problem});
  else if (string == String_Problem::QUOTE_TAKEN_IN)
    findings.push_back(describe_string(placed));
  for (const std::string& word : split_parameters(placed.directive.parameters)) {
    const std::string parameter = std::string(service).append("parameter '").append(word).append("': ");
    for (const std::string& problem : check_variables(word))
      findings.push_back({Finding_Kind::VARIABLE_NOT_SET, placed.place, parameter + problem});
  }
}

static std::string describe(const Place& place)
{
  if (place.file.empty())
    return "the command line";
  return place.file + ':' + std::to_string(place.line);
}

static void check_name(const Loader_Step& step, Findings& findings)
{
  const std::string service = "service '" + step.placed->directive.name + '\'';
  switch (step.name) {
  case Name_Effect::NONE:
    break;
  case Name_Effect::REPLACES:
    findings.push_back({Finding_Kind::DUPLICATE_SERVICE, step.placed->place,
                        service + " takes the place of the one in " + describe(step.there)});
    break;
  case Name_Effect::STAYS_OUT:
    findings.push_back({Finding_Kind::DUPLICATE_SERVICE, step.placed->place,
                        service + " is not loaded: the one in " + describe(step.there) + " stays"});
    break;
  case Name_Effect::UNKNOWN:
    findings.push_back({Finding_Kind::UNKNOWN_SERVICE, step.placed->place, "there is no " + service + " by then"});
    break;
  }
}

static std::string describe_ignored_module(const Loader_Step& step)
{
  const std::string module = '\'' + step.placed->directive.name + '\'';
  if (step.in_stream == Stream_Effect::NEEDS_DYNAMIC)
    return module + " is not loaded: modules need 'stream dynamic'";
  if (step.in_stream == Stream_Effect::CUT_OFF)
    return module + " is not loaded: within braces, modules have to stand behind 'resume' and 'remove'";
  if (step.in_stream == Stream_Effect::NOT_PUSHED)
    return module + " is not pushed onto '" + step.stream->name + "', as the directive in " + describe(step.failed) +
           " fails";
  return "";
}

static std::string describe_end_of_host(const Loader_Step& step)
{
  const std::string module = '\'' + step.placed->directive.name + '\'';
  switch (step.in_stream) {
  case Stream_Effect::STREAM_MISTYPED:
    return '\'' + step.stream->name + "' is no STREAM";
  case Stream_Effect::MODULE_MISTYPED:
    return module + " is no Module";
  case Stream_Effect::MODULE_NOT_THERE:
    return module + " is no module of a stream that is there";
  case Stream_Effect::STREAM_NOT_THERE:
    return "there is no stream '" + step.stream->name + "' before it";
  default:
    return "";
  }
}

static void check_stream(const Loader_Step& step, Findings& findings)
{
  if (const std::string problem = describe_ignored_module(step); !problem.empty())
    findings.push_back({Finding_Kind::IGNORED_MODULE, step.placed->place, problem});
  if (const std::string problem = describe_end_of_host(step); !problem.empty())
    findings.push_back({Finding_Kind::FATAL_DIRECTIVE, step.placed->place,
                        "the host ends here, with a record of a fault: " + problem});
}

// The host may end at once, or when the stream is taken apart: at a hang-up that does so, or at the end of the process.
static std::string describe_break(const Loader_Step& step)
{
  const std::string module = '\'' + step.placed->directive.name + '\'';
  const std::string stream = '\'' + step.broken_stream + '\'';
  const std::string when = step.is_reload ? "on the first hang-up, " : "";
  const std::string end = "; the host then ends with a record of a fault or hangs, at the latest when it is stopped";
  if (step.breaks == Stream_Break::TAKEN_AWAY)
    return when + module + " goes while it is on the stream " + stream + end + "; remove the stream before its modules";
  return when + module + " is pushed onto " + stream + " and has been on a stream before" + end +
         (step.is_reload ? "; remove " + stream + " and then all of its modules in a file before this one" : "");
}

static void check_step(const Loader_Step& step, Findings& findings)
{
  if (step.is_source_passed_over) {
    findings.push_back({Finding_Kind::UNREADABLE_FILE,
                        {step.placed->place.file, 0},
                        "is not read: there is a service of this name by then"});
    return;
  }

  if (step.breaks != Stream_Break::NONE)
    findings.push_back({Finding_Kind::BROKEN_STREAM, step.placed->place, describe_break(step)});
  if (step.is_reload)
    return; // everything else is as at the start

  const bool is_loaded = step.placed->directive.verb == Directive::DYNAMIC &&
                         step.in_stream != Stream_Effect::NEEDS_DYNAMIC && step.in_stream != Stream_Effect::CUT_OFF;
  check_parameters(*step.placed, findings);
  if (is_loaded)
    check_factory(*step.placed, findings);
  if (step.breaks == Stream_Break::NONE) // or the finding of the stream tells why
    check_name(step, findings);
  if (step.is_bare_stream)
    findings.push_back({Finding_Kind::EMPTY_STREAM, step.placed->place,
                        '\'' + step.placed->directive.name +
                            "' is a stream without modules, which does nothing; if its factory makes a service of "
                            "another type, that is not initialised, and the host ends with a record of a fault"});
  check_stream(step, findings);
}

void check_steps(const std::vector<Loader_Step>& steps, Findings& findings)
{
  for (const Loader_Step& step : steps)
    check_step(step, findings);
}
