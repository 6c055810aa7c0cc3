#include "check/configurator.h"

#include "starter/open_service_config.h"

#include <ace/ACE.h>
#include <ace/Get_Opt.h>
#include <ace/Service_Gestalt.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <utility>

namespace
{
// The configurator, as far as the reading of its arguments.
class Configurator : public ACE_Service_Gestalt
{
public:
  Configurator() : ACE_Service_Gestalt(1, true, true) {}

  std::vector<Source> sources(int argc, char** argv);

private:
  static std::vector<std::string> texts(ACE_SVC_QUEUE* queue);
};

std::vector<std::string> Configurator::texts(ACE_SVC_QUEUE* queue)
{
  std::vector<std::string> result;
  if (queue)
    for (ACE_SVC_QUEUE_ITERATOR i(*queue); !i.done(); i.advance()) {
      ACE_TString* text = nullptr;
      if (i.next(text))
        result.emplace_back(text->c_str());
    }
  return result;
}

std::vector<Source> Configurator::sources(int argc, char** argv)
{
  const bool debug = ACE::debug();
  (void)parse_args(argc, argv); // its one failure is a lack of memory
  ACE::debug(debug);            // -d is for the host

  std::vector<Source> result;
  for (const std::string& file : texts(svc_conf_file_queue_))
    result.push_back({true, file, false});
  if (result.empty())
    result.push_back({true, ACE_DEFAULT_SVC_CONF, true});
  for (const std::string& directive : texts(svc_queue_))
    result.push_back({false, directive, false});
  return result;
}

// An option of the configurator's and its value, if it has one.
using Option = std::pair<char, std::string>;

// The options of these letters as a parser of this kind takes them from the configurator's arguments, which stay.
std::vector<Option> read_options(int argc, char** argv, const char* letters, int ordering)
{
  std::vector<char*> line(argv, argv + argc); // a parser may change the order
  line.push_back(nullptr);
  ACE_Get_Opt opt(argc, line.data(), letters, 1, 0, ordering);

  std::vector<Option> options;
  for (int c; (c = opt()) != -1;)
    if (c != '?' && c != 1)
      options.emplace_back(static_cast<char>(c), opt.opt_arg() ? opt.opt_arg() : "");
  return options;
}

// The configurator reads its arguments twice, each time for a part of the options, of the others of which that reading
// knows nothing: it takes their values for words or for options, and a word ends it if POSIXLY_CORRECT is set.
std::vector<Option> read_process_options(int argc, char** argv)
{
  return read_options(argc, argv, "bs:p:", ACE_Get_Opt::RETURN_IN_ORDER);
}

std::vector<Option> read_service_options(int argc, char** argv)
{
  return read_options(argc, argv, "df:k:nyS:", ACE_Get_Opt::PERMUTE_ARGS);
}

std::string describe(const Option& option)
{
  return std::string("'-") + option.first + (option.second.empty() ? "" : ' ' + option.second) + '\'';
}

// What the two readings take and what is meant are the same, unless values look like options.
void check_readings(int argc, char** argv, Findings& findings)
{
  std::vector<Option> taken = read_process_options(argc, argv);
  for (const Option& option : read_service_options(argc, argv))
    taken.push_back(option);
  std::vector<Option> lost;
  for (const Option& option : read_options(argc, argv, SERVICE_CONFIG_OPTIONS, ACE_Get_Opt::RETURN_IN_ORDER))
    if (const auto found = std::find(taken.begin(), taken.end(), option); found != taken.end())
      taken.erase(found);
    else
      lost.push_back(option);

  for (const Option& option : taken)
    findings.push_back(
        {Finding_Kind::READ_TWICE, {}, "the configurator takes " + describe(option) + " out of a value"});
  for (const Option& option : lost)
    findings.push_back(
        {Finding_Kind::IGNORED_ARGUMENT,
         {},
         describe(option) + " does not get to the configurator: " +
             (std::getenv("POSIXLY_CORRECT") ? "POSIXLY_CORRECT is set, and a value before it ends the options"
                                             : "a value before it is taken for an option")});
}

void check_signals(int argc, char** argv, Findings& findings)
{
  for (const auto& [letter, value] : read_process_options(argc, argv)) {
    const int signo = std::atoi(value.c_str());
    struct sigaction action;
    if (letter == 's' &&
        (signo <= 0 || signo == SIGKILL || signo == SIGSTOP || sigaction(signo, nullptr, &action) != 0))
      findings.push_back({Finding_Kind::BAD_SIGNAL,
                          {},
                          "-s '" + value + "' is no number of a signal that can be caught: no service is loaded"});
  }
}
} // namespace

std::vector<Source> configurator_sources(int argc, char** argv)
{
  return Configurator().sources(argc, argv);
}

bool goes_to_background(int argc, char** argv)
{
  const std::vector<Option> options = read_process_options(argc, argv);
  return std::any_of(options.begin(), options.end(), [](const Option& option) { return option.first == 'b'; });
}

void check_configurator_options(int argc, char** argv, Findings& findings)
{
  check_readings(argc, argv, findings);
  check_signals(argc, argv, findings);
}
