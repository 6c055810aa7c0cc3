#include "check/configurator.h"

#include <ace/ACE.h>
#include <ace/Get_Opt.h>
#include <ace/Service_Gestalt.h>

#include <algorithm>

namespace
{
// The framework's configurator, of which only the reading of its arguments is used.
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
  (void)parse_args(argc, argv); // it fails only for lack of memory
  ACE::debug(debug);            // an option -d is meant for the host and not for the checker

  std::vector<Source> result;
  for (const std::string& file : texts(svc_conf_file_queue_))
    result.push_back({true, file, false});
  if (result.empty())
    result.push_back({true, ACE_DEFAULT_SVC_CONF, true});
  for (const std::string& directive : texts(svc_queue_))
    result.push_back({false, directive, false});
  return result;
}

// The options that a parser which knows these letters takes from the arguments.
std::vector<Configurator_Option> read_options(int argc, char** argv, const char* letters, int ordering)
{
  std::vector<char*> line(argv, argv + argc); // a copy, as a parser may change the order
  line.push_back(nullptr);
  ACE_Get_Opt opt(argc, line.data(), letters, 1, 0, ordering);

  std::vector<Configurator_Option> options;
  for (int c; (c = opt()) != -1;)
    if (c != '?' && c != 1)
      options.emplace_back(static_cast<char>(c), opt.opt_arg() ? opt.opt_arg() : "");
  return options;
}
} // namespace

std::vector<Source> configurator_sources(int argc, char** argv)
{
  return Configurator().sources(argc, argv);
}

std::vector<Configurator_Option> taken_process_options(int argc, char** argv)
{
  return read_options(argc, argv, "bs:p:", ACE_Get_Opt::RETURN_IN_ORDER);
}

std::vector<Configurator_Option> taken_service_options(int argc, char** argv)
{
  return read_options(argc, argv, "df:k:nyS:", ACE_Get_Opt::PERMUTE_ARGS);
}

bool goes_to_background(int argc, char** argv)
{
  const std::vector<Configurator_Option> options = taken_process_options(argc, argv);
  return std::any_of(options.begin(), options.end(),
                     [](const Configurator_Option& option) { return option.first == 'b'; });
}
