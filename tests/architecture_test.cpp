// Holds the map in doc/architecture.md against the source tree, both ways round, and the includes against its rules.
// The first cell of a row of the map is a path in backquotes. `DIR/NAME.{h,cpp}` stands for a header and its source,
// and a path that ends in a slash for a folder.

#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace fs = std::filesystem;
using Paths = std::set<std::string>;

static std::string map_page()
{
  std::string text = read_file(SOURCE_DIR "/doc/architecture.md");
  EXPECT_NE("", text);
  return text;
}

// ---- The map and the tree

// The paths that the first cell of a row stands for.
static Paths paths_of(const std::string& cell)
{
  std::smatch parts;
  if (!std::regex_match(cell, parts, std::regex(R"((.*)\{([^}]*)\})")))
    return {cell};

  Paths paths;
  std::istringstream endings(parts[2]);
  for (std::string ending; std::getline(endings, ending, ',');)
    paths.insert(parts[1].str() + ending);
  return paths;
}

static Paths paths_in_map()
{
  const std::string page = map_page();
  const std::string map = page.substr(page.find("\n## The folders\n"));
  const std::regex row("\n\\| `([^`]+)` \\|");

  Paths paths;
  for (std::sregex_iterator i(map.begin(), map.end(), row); i != std::sregex_iterator(); ++i)
    for (const std::string& path : paths_of((*i)[1]))
      EXPECT_TRUE(paths.insert(path).second) << "twice: " << path;
  return paths;
}

// Folders that belong to somebody's tools, or that a build makes, have no line.
static bool is_mapped(const fs::directory_entry& folder)
{
  const std::string name = folder.path().filename();
  return folder.is_directory() && name[0] != '.' && name != "build";
}

static std::string from_root(const fs::path& path)
{
  return fs::relative(path, SOURCE_DIR).string();
}

// The top-level folders and the folders in these that hold sources.
static Paths folders_in_tree()
{
  Paths folders;
  for (const auto& top : fs::directory_iterator(SOURCE_DIR))
    if (is_mapped(top)) {
      folders.insert(from_root(top) + '/');
      for (const auto& folder : fs::directory_iterator(top))
        if (is_mapped(folder))
          folders.insert(from_root(folder) + '/');
    }
  return folders;
}

static Paths files_in(const std::string& folder)
{
  Paths files;
  for (const auto& entry : fs::directory_iterator(SOURCE_DIR "/" + folder))
    if (entry.is_regular_file())
      files.insert(from_root(entry));
  return files;
}

static Paths without(const Paths& paths, const Paths& others)
{
  Paths rest;
  std::set_difference(paths.begin(), paths.end(), others.begin(), others.end(), std::inserter(rest, rest.end()));
  return rest;
}

TEST(architecture, has_a_line_for_every_folder)
{
  const Paths folders = folders_in_tree();
  EXPECT_LE(10u, folders.size());
  EXPECT_EQ(Paths(), without(folders, paths_in_map()));
}

TEST(architecture, has_a_line_for_every_file_of_the_programs_and_the_library)
{
  const Paths map = paths_in_map();
  for (const std::string folder : {"check", "ctl", "scrt", "starter", "trace"}) {
    const Paths files = files_in(folder);
    EXPECT_LE(10u, files.size()) << folder;
    EXPECT_EQ(Paths(), without(files, map)) << folder;
  }
}

TEST(architecture, names_no_path_that_does_not_exist)
{
  for (const std::string& path : paths_in_map()) {
    const fs::path file = fs::path(SOURCE_DIR) / path;
    EXPECT_TRUE(path.back() == '/' ? fs::is_directory(file) : fs::is_regular_file(file)) << path;
  }
}

// ---- The rules of the includes

// By folder, the folders whose headers its sources may include.
static std::map<std::string, Paths> allowed_includes()
{
  const std::string page = map_page();
  const std::regex row("\n\\| (`[a-z]+/`) \\| ((?:`[a-z]+/`(?:, )?)+) \\|");
  const std::regex folder("`([a-z]+)/`");

  std::map<std::string, Paths> allowed;
  for (std::sregex_iterator i(page.begin(), page.end(), row); i != std::sregex_iterator(); ++i) {
    const std::string cells[] = {(*i)[1], (*i)[2]};
    Paths& folders = allowed[std::regex_replace(cells[0], folder, "$1")];
    for (std::sregex_iterator j(cells[1].begin(), cells[1].end(), folder); j != std::sregex_iterator(); ++j)
      folders.insert((*j)[1]);
  }
  return allowed;
}

// The folders of the headers that the source at `path` includes by a path from the root.
static Paths included_folders(const fs::path& path)
{
  const std::string text = '\n' + read_file(path);
  const std::regex include("\n *# *include \"([^/\"]*)[^\"]*\"");

  Paths folders;
  for (std::sregex_iterator i(text.begin(), text.end(), include); i != std::sregex_iterator(); ++i)
    folders.insert((*i)[1]);
  return folders;
}

static bool is_source(const fs::path& path)
{
  return path.extension() == ".cpp" || path.extension() == ".h" || path.extension() == ".c";
}

TEST(architecture, lets_no_folder_include_what_its_rule_leaves_out)
{
  const auto allowed = allowed_includes();
  Paths folders;
  for (const auto& [folder, may_include] : allowed) {
    folders.insert(folder);
    for (const auto& entry : fs::recursive_directory_iterator(SOURCE_DIR "/" + folder))
      if (is_source(entry.path())) {
        EXPECT_EQ(Paths(), without(included_folders(entry.path()), may_include)) << entry.path();
      }
  }

  EXPECT_EQ((Paths{"bench", "check", "companions", "ctl", "examples", "metrics", "scrt", "starter", "tests", "trace"}),
            folders);
}

TEST(architecture, keeps_the_notifier_apart_from_the_rest_of_the_program)
{
  const std::regex include("#include \"(starter/[^\"]*)\"");
  for (const char* const name : {"starter/systemd_handler.h", "starter/systemd_handler.cpp"}) {
    const std::string text = read_file(SOURCE_DIR "/" + std::string(name));
    EXPECT_NE("", text) << name;
    for (std::sregex_iterator i(text.begin(), text.end(), include); i != std::sregex_iterator(); ++i)
      EXPECT_EQ("starter/systemd_handler.h", (*i)[1]) << name;
  }
}
