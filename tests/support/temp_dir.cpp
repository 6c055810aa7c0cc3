#include "tests/support/temp_dir.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

Temp_Dir::Temp_Dir() : path_(std::filesystem::temp_directory_path() / "starter-test-XXXXXX"), owner_(getpid())
{
  if (!mkdtemp(path_.data()))
    throw std::runtime_error("no temporary directory");
  chmod(path_.c_str(), 0777); // processes under test run as other accounts too
}

Temp_Dir::~Temp_Dir()
{
  if (getpid() != owner_)
    return;                // a child of the test that ends by exit
  std::error_code ignored; // a left-over directory is no reason to fail a test
  std::filesystem::remove_all(path_, ignored);
}

std::string Temp_Dir::write(const std::string& name, const std::string& content) const
{
  const std::filesystem::path path(*this / name);
  std::filesystem::create_directories(path.parent_path());

  const std::filesystem::path fresh(path.string() + ".new");
  std::ofstream(fresh, std::ios::binary) << content;
  std::filesystem::rename(fresh, path);
  return path;
}

std::string read_file(const std::string& path)
{
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}
