#include "tests/support/companions.h"

#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"

#include <regex>
#include <sstream>

std::vector<std::string> companion_names()
{
  std::istringstream names(TESTS_COMPANIONS);
  std::vector<std::string> found;
  for (std::string name; std::getline(names, name, ',');)
    found.push_back(name);
  return found;
}

std::string companion_directive(const std::string& name, const char* params)
{
  const std::string library = public_path(TESTS_COMPANION_LIBRARY_DIR "/libstarter_" + name + ".so");
  std::string conf = read_file(TESTS_COMPANION_SOURCE_DIR "/" + name + '/' + name + ".conf.in");
  conf = std::regex_replace(conf, std::regex("@COMPANION_LIBRARY@"), library);
  conf = std::regex_replace(conf, std::regex(":9464"), ":0"); // tests run in parallel: a free port
  if (params)
    conf = std::regex_replace(conf, std::regex("\"[^\"\n]*\"\n$"), '"' + std::string(params) + "\"\n");
  return conf;
}
