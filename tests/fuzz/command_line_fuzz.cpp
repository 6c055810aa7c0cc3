// This target reads a command line, and holds the program's own options and the argument vector that the configurator
// gets against the rules of the manual. Each line of the input is an argument, and the first one is the name of the
// program. The working directory holds the directories "conf.d" (with a.conf, b.conf, .conf, and files that are not for
// the configurator), "more.d" (with z.conf) and "empty.d", and the file "file".

#include "starter/open_service_config.h"
#include "starter/options.h"
#include "tests/fuzz/framework_line.h"
#include "tests/support/temp_dir.h"

#include <filesystem>
#include <optional>
#include <set>

#include <unistd.h>

namespace
{
struct Option
{
  std::string name; // a letter, or a long name in full
  std::string value;
};

struct Long_Option
{
  std::string name;
  bool has_value;
};

using Long_Options = std::vector<Long_Option>;

const Long_Options OWN = {{"threads", true}, {"reactor", true},       {"background", false},
                          {"user", true},    {"primary-group", true}, {"group", true}};
const Long_Options CONFIGURATORS = {{"thread-pool", true}};

// Return the option of this name, or the only one that begins so.
std::optional<Long_Option> find(const Long_Options& known, const std::string& name)
{
  Long_Options found;
  for (const Long_Option& option : known)
    if (option.name == name)
      return option;
    else if (option.name.compare(0, name.size(), name) == 0)
      found.push_back(option);
  return found.size() == 1 ? std::optional<Long_Option>(found.front()) : std::nullopt;
}

// A reader gives the options on the line from the argument `at` on.
class Reader
{
public:
  Reader(const Texts& line, std::size_t at, const Long_Options& known, std::string flags, std::string letters)
      : line_(line), at_(at), known_(known), flags_(std::move(flags)), letters_(std::move(letters))
  {
  }

  std::vector<Option> read()
  {
    for (; at_ < line_.size() && line_[at_] != "--"; ++at_)
      if (line_[at_].compare(0, 2, "--") == 0)
        read_long(line_[at_].substr(2));
      else if (line_[at_].size() > 1 && line_[at_][0] == '-')
        read_letters(line_[at_].substr(1));
    return std::move(options_);
  }

private:
  void read_long(const std::string& text)
  {
    const std::size_t equals = text.find('=');
    const std::optional<Long_Option> option = find(known_, text.substr(0, equals));
    if (!option)
      return;
    if (option->has_value && equals == std::string::npos)
      take_next(option->name);
    else
      options_.push_back({option->name, option->has_value ? text.substr(equals + 1) : ""});
  }

  void read_letters(const std::string& text)
  {
    for (std::size_t i = 0; i < text.size(); ++i) {
      const std::string letter(1, text[i]);
      if (flags_.find(letter) != std::string::npos)
        options_.push_back({letter, ""});
      else if (letters_.find(letter) == std::string::npos)
        continue;
      else if (i + 1 < text.size())
        return options_.push_back({letter, text.substr(i + 1)});
      else
        return take_next(letter);
    }
  }

  void take_next(const std::string& name)
  {
    if (at_ + 1 < line_.size())
      options_.push_back({name, line_[++at_]});
  }

  const Texts& line_;
  std::size_t at_;
  const Long_Options& known_;
  const std::string flags_;   // letters without a value
  const std::string letters_; // letters with one
  std::vector<Option> options_;
};

// Return the number of threads that the manual promises for this text.
unsigned count(const std::string& text)
{
  const std::size_t first = text.compare(0, 1, "+") == 0 ? 1 : 0;
  unsigned long long sum = 0;
  for (std::size_t i = first; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
    if ((sum = sum * 10 + static_cast<unsigned>(text[i] - '0')) > 4294967295u)
      return 4294967295u;
  return static_cast<unsigned>(sum);
}

std::string show(const char* text)
{
  return text ? std::string("= ") + text : "none";
}

void check_own_options(const Texts& line, int argc, char** argv)
{
  std::string type = "none", user = "none", group = "none", background = "no";
  unsigned threads = 0;
  Texts expected;
  for (const auto& [name, value] : Reader(line, 1, OWN, "", "").read())
    if (name == "threads")
      threads = count(value);
    else if (name == "background")
      background = "yes";
    else if (name == "group")
      expected.push_back("= " + value);
    else
      (name == "reactor" ? type : name == "user" ? user : group) = "= " + value;
  expected.insert(expected.end(), {std::to_string(threads), background, type, user, group});

  const Starter_Options options = parse_options(argc, argv);
  Texts actual;
  for (const char* const text : options.opt_groups)
    actual.push_back(show(text));
  actual.insert(actual.end(), {std::to_string(options.n), options.background ? "yes" : "no", show(options.type),
                               show(options.opt_user), show(options.opt_group)});
  expect_equal("the program's own options", expected, actual);
}

// Return false when `directory` is none.
bool find_files(const std::string& directory, std::set<std::string>& files)
{
  std::error_code error;
  const std::filesystem::directory_iterator entries(directory, error);
  if (error || directory.empty())
    return false;

  for (const auto& entry : entries) {
    const std::string name = entry.path().filename();
    if (name.size() >= 5 && name.compare(name.size() - 5, 5, ".conf") == 0 && entry.is_regular_file(error))
      files.insert(directory + '/' + name);
  }
  return true;
}

void add(Texts& texts, const std::string& letter, const std::string& value)
{
  if (is_survived(value))
    texts.insert(texts.end(), {'-' + letter, value});
}

Texts work_out_vector(const Texts& line, bool skip_first_arg)
{
  const bool is_named = skip_first_arg && !line.empty() && !line[0].empty() && is_survived(line[0]);
  Texts texts{is_named ? line[0] : "dummy"};
  std::set<std::string> files;
  for (const auto& [name, value] : Reader(line, skip_first_arg ? 1 : 0, CONFIGURATORS, "bdny", "fkpsS").read())
    if (name == "f" && find_files(value, files))
      for (const std::string& file : files)
        add(texts, name, file);
    else if (std::string("fkpsS").find(name) != std::string::npos)
      add(texts, name, value);
    else if (name.size() == 1)
      texts.push_back('-' + name);

  Texts words = split(join(texts)).words;
  for (std::string& word : words)
    word = substitute(word);
  return words;
}

void check_vector(const Texts& line, int argc, char** argv, bool skip_first_arg)
{
  Texts passed;
  const bool result = open_service_config(argc, argv, skip_first_arg, [&](int count, char** vector) {
    expect(count >= 0 && vector && !vector[count], "the vector has an end where its count says");
    passed.assign(vector, vector + count);
    return argc % 2 == 0;
  });
  expect(result == (argc % 2 == 0), "the result is the callable's");
  expect_equal(skip_first_arg ? "the vector" : "the vector without the name of a program",
               work_out_vector(line, skip_first_arg), passed);
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  static const Temp_Dir dir;
  for (const char* const name : {"conf.d/a.conf", "conf.d/b.conf", "conf.d/.conf", "conf.d/c.txt", "conf.d/B.CONF",
                                 "conf.d/conf", "conf.d/sub.conf/in.conf", "more.d/z.conf", "empty.d/x.txt", "file"})
    dir.write(name, "");
  set_environment();
  return chdir(dir.path().c_str());
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  const Texts line = input_lines(data, size);
  Texts copy = line;
  std::vector<char*> argv;
  for (std::string& argument : copy)
    argv.push_back(argument.data());
  argv.push_back(nullptr);
  const std::vector<char*> pointers = argv;
  const int argc = static_cast<int>(line.size());

  check_own_options(line, argc, argv.data());
  check_vector(line, argc, argv.data(), true);
  check_vector(line, argc, argv.data(), false);
  expect_equal("the command line stays", line, copy);
  expect(argv == pointers, "the arguments keep their places");
  return 0;
}
