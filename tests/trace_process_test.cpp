// The program starter-trace, on logs of the program itself and on logs that are made up.

#include "tests/support/command.h"
#include "tests/support/loops.h"
#include "tests/support/requirements.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <signal.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using Texts = std::vector<std::string>;

// ---- The library that faults

static const char SOURCE[] = SOURCE_DIR "/tests/services/nested.cpp";

// "FILE:LINE" of the line that ends in this comment.
static std::string at(const std::string& comment)
{
  const Texts lines = lines_of(read_file(SOURCE));
  const auto line = std::find_if(lines.begin(), lines.end(), [&](const std::string& text) {
    return testing::Matches(EndsWith("// " + comment))(text);
  });
  EXPECT_NE(lines.end(), line) << comment;
  return std::string(SOURCE) + ':' + std::to_string(line - lines.begin() + 1);
}

// The lines for the frames of the library, without their numbers, for a fault in the line that ends in this comment.
static Texts expected_frames(const std::string& comment)
{
  const std::string descend = "nested::Nested::descend(int) at ";
  const std::string end = " (libnested.so)";
  return {"nested::fault_in_line(char const*) at " + at(comment) + ", inlined" + end,
          descend + at("inlined here") + end,
          descend + at("descend") + end,
          descend + at("descend") + end,
          descend + at("descend") + end,
          "nested::Nested::handle_timeout(ACE_Time_Value const&, void const*) at " + at("callback") + end};
}

static std::string build_id_of(const std::string& file)
{
  return without_newline(output_of("readelf -n " + file + " | sed -n 's/^ *Build ID: //p'"));
}

// The path of the debug information in a directory that is ordered by build-ids, whose folders are made.
static std::string debug_file(const std::string& dir, const std::string& build_id)
{
  const std::string folder = dir + "/.build-id/" + build_id.substr(0, 2);
  fs::create_directories(folder);
  return folder + '/' + build_id.substr(2) + ".debug";
}

class starter_trace : public testing::Test
{
protected:
  starter_trace() : library_(dir_ / "libnested.so") { install("nested"); }

  // Put the library of the target in its place, stripped. Its debug information goes to the file debug_.
  void install(const std::string& target)
  {
    const std::string built = service_library(target);
    fs::remove(library_);
    debug_ = dir_ / (target + ".debug");
    (void)output_of("objcopy --only-keep-debug " + built + ' ' + debug_ +
                    " && objcopy --strip-all --add-gnu-debuglink=" + debug_ + ' ' + built + ' ' + library_);
  }

  // Move the debug information to where its build-id leads to. Returns the directory.
  std::string store_debug_file()
  {
    const std::string store = dir_ / "store";
    fs::rename(debug_, debug_file(store, build_id_of(library_)));
    return store;
  }

  // The log of a process in which the library faults.
  std::string log_of(const std::string& how, Texts args = {"--reactor", "tp", "--threads", "2"}) const
  {
    args.insert(args.end(), {"-S", "dynamic Nested Service_Object * " + library_ + ":_make_Nested() \"" + how + "\""});
    Starter_Process starter(args);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_LE(1u, starter.count("the back trace:\n")) << starter.log();
    return starter.log();
  }

  // The program gets the log as a file, which comes last.
  Ended trace(const std::string& log, const std::string& options = "") const
  {
    return run("timeout 60 " TESTS_TRACE " " + options + ' ' + dir_.write("x.log", log));
  }

  const Temp_Dir dir_;
  const std::string library_;
  std::string debug_;
};

// The lines about frames in the library, without the numbers of the frames.
static Texts library_frames(const std::string& output)
{
  static const std::regex number("^#[0-9]+ +");
  Texts frames;
  for (const std::string& line : lines_of(output))
    if (line[0] == '#' && line.find("(libnested.so)") != std::string::npos)
      frames.push_back(std::regex_replace(line, number, ""));
  return frames;
}

static Texts twice(Texts frames)
{
  const Texts once = frames;
  frames.insert(frames.end(), once.begin(), once.end());
  return frames;
}

// The log without what the program knows of the files that ran.
static std::string without_modules(const std::string& log)
{
  return std::regex_replace(log, std::regex("(^|\n)Module [^\n]*(?=\n)"), "");
}

// The log with only those frames and modules that are the library's.
static std::string only_of_library(const std::string& log)
{
  std::string part;
  for (const std::string& line : lines_of(log))
    if (line.find("[0x") == std::string::npos && line.compare(0, 7, "Module ") != 0)
      part += line + '\n';
    else if (line.find("libnested.so") != std::string::npos)
      part += line + '\n';
  return part;
}

// ---- Functions, files and lines

TEST_F(starter_trace, leads_every_frame_of_a_stripped_service_back_for_each_fault_and_reactor)
{
  const std::string store = store_debug_file();
  const std::pair<const char*, const char*> faults[] = {{"11", "SIGSEGV"}, {"4", "SIGILL"},           {"8", "SIGFPE"},
                                                        {"7", "SIGBUS"},   {"6", "SIGABRT"},          {"14", "SIGALRM"},
                                                        {"24", "SIGXCPU"}, {"terminate", "terminate"}};

  for (const char* const reactor : {"select", "tp", "dev_poll", "priority"})
    for (const auto& [how, comment] : faults) {
      SCOPED_TRACE(testing::Message() << reactor << ' ' << comment);
      const std::string log = log_of(how, {"--reactor", reactor, "--threads", reactor[0] == 't' ? "4" : "1"});

      const Ended traced = trace(log, "--debug-dir " + store);

      EXPECT_GE(1, traced.status) << traced.output;
      EXPECT_EQ(expected_frames(comment), library_frames(traced.output)) << log << traced.output;
      EXPECT_THAT(traced.output,
                  AllOf(StartsWith("Signal "), HasSubstr(") caught in [starter], the back trace:\n#0  ")));
    }
}

TEST_F(starter_trace, leads_the_frames_of_an_uncaught_exception_and_of_its_abort_back)
{
  const std::string store = store_debug_file();
  for (const char* const reactor : {"select", "tp", "dev_poll", "priority"}) {
    SCOPED_TRACE(reactor);
    const std::string log = log_of("exception", {"--reactor", reactor, "--threads", reactor[0] == 't' ? "4" : "1"});

    const Ended traced = trace(log, "--debug-dir " + store);

    EXPECT_EQ(twice(expected_frames("exception")), library_frames(traced.output)) << log << traced.output;
    EXPECT_THAT(traced.output, StartsWith("Unhandled exception is caught, nested too deep\n#0  "));
    EXPECT_THAT(traced.output, HasSubstr("\n\nSignal 6 (Aborted) caught in [starter], the back trace:\n#0  "));
  }
}

TEST_F(starter_trace, ends_with_status_0_if_every_frame_is_resolved)
{
  const std::string log = only_of_library(log_of("11"));

  const Ended traced = trace(log);

  EXPECT_EQ(0, traced.status) << log << traced.output;
  EXPECT_EQ(expected_frames("SIGSEGV"), library_frames(traced.output)) << traced.output;
  EXPECT_EQ(7u, lines_of(traced.output).size()) << traced.output; // with the title, and without a note
}

TEST_F(starter_trace, finds_debug_information_beside_the_library_and_in_directories_that_are_given)
{
  const std::string log = only_of_library(log_of("8"));
  EXPECT_EQ(expected_frames("SIGFPE"), library_frames(trace(log).output));

  fs::create_directory(dir_ / ".debug");
  fs::rename(debug_, dir_ / ".debug/nested.debug");
  EXPECT_EQ(expected_frames("SIGFPE"), library_frames(trace(log).output));

  fs::rename(dir_ / ".debug/nested.debug", debug_);
  const std::string store = store_debug_file();
  const Ended without = trace(log);
  EXPECT_EQ(1, without.status);
  EXPECT_THAT(without.output, HasSubstr("\nThere is no debug information for " + library_ + " of the build-id " +
                                        build_id_of(library_) + ".\n"));
  EXPECT_THAT(library_frames(without.output), Each(EndsWith(": no debug information")));

  EXPECT_EQ(expected_frames("SIGFPE"),
            library_frames(trace(log, "--debug-dir " + dir_ / "none" + " --debug-dir=" + store).output));
}

TEST_F(starter_trace, gets_debug_information_from_debuginfod)
{
  NEEDS(::dlopen("libdebuginfod.so.1", RTLD_LAZY) != nullptr, "libdebuginfod1");
  const std::string log = only_of_library(log_of("8"));
  const std::string folder = dir_ / "server/buildid/" + build_id_of(library_);
  fs::create_directories(folder);
  fs::rename(debug_, folder + "/debuginfo");
  const std::string command = "env DEBUGINFOD_CACHE_PATH=" + dir_ / "cache" + " DEBUGINFOD_URLS=file://" +
                              dir_ / "server" + " timeout 60 " TESTS_TRACE " " + dir_.write("x.log", log);

  EXPECT_EQ(expected_frames("SIGFPE"), library_frames(run(command).output)) << run(command).output;
  fs::remove(library_);
  EXPECT_EQ(expected_frames("SIGFPE"), library_frames(run(command).output)) << run(command).output;
}

TEST_F(starter_trace, reads_unstripped_libraries)
{
  fs::remove(library_);
  fs::copy(service_library("nested"), library_);
  fs::remove(debug_);

  EXPECT_EQ(expected_frames("SIGILL"), library_frames(trace(log_of("4")).output));
}

// ---- Files that have changed

TEST_F(starter_trace, reports_a_library_that_was_rebuilt_and_guesses_nothing)
{
  const std::string log = log_of("11");
  const std::string ran = build_id_of(library_);
  fs::remove(debug_);
  install("nested_rebuilt");
  const std::string now = build_id_of(library_);
  ASSERT_NE(ran, now);

  const Ended traced = trace(log);

  EXPECT_EQ(1, traced.status);
  EXPECT_THAT(traced.output, HasSubstr("\n" + library_ + " was rebuilt since: the build-id " + ran +
                                       " ran, and the file has " + now + ".\n"));
  EXPECT_THAT(traced.output, Not(HasSubstr("nested.cpp")));
  EXPECT_EQ(5u, library_frames(traced.output).size()) << traced.output;
  EXPECT_THAT(library_frames(traced.output), Each(EndsWith("(libnested.so): rebuilt since")));
}

TEST_F(starter_trace, finds_the_debug_information_of_the_build_that_ran_although_the_library_was_rebuilt_or_removed)
{
  const std::string log = log_of("11");
  const std::string store = store_debug_file();
  install("nested_rebuilt");
  EXPECT_EQ(expected_frames("SIGSEGV"), library_frames(trace(log, "--debug-dir " + store).output));

  fs::remove(library_);
  EXPECT_EQ(expected_frames("SIGSEGV"), library_frames(trace(log, "--debug-dir " + store).output));

  const Ended without = trace(log);
  EXPECT_EQ(1, without.status);
  EXPECT_THAT(without.output, HasSubstr("\n" + library_ + " is missing, and so is debug information of the build-id "));
  EXPECT_THAT(library_frames(without.output), Each(EndsWith("(libnested.so): the file is missing")));
}

TEST_F(starter_trace, takes_the_files_as_they_are_if_the_log_names_no_modules_and_says_so)
{
  const Ended traced = trace(without_modules(log_of("6", {"--reactor", "select"})));

  EXPECT_EQ(expected_frames("SIGABRT"), library_frames(traced.output)) << traced.output;
  EXPECT_THAT(traced.output,
              HasSubstr("\n" + library_ + " is taken for the file that ran, as the log does not tell its build-id.\n"));
  // Also where the table of symbols has versions behind the names, as that of the C library's debug information has.
  EXPECT_THAT(traced.output, Not(HasSubstr("not the file that ran")));
}

// The rest of the functions has moved.
TEST_F(starter_trace, notices_a_rebuilt_library_by_its_functions_if_the_log_names_no_modules)
{
  const std::string log = without_modules(log_of("11"));
  install("nested_rebuilt");

  const Ended traced = trace(log);

  EXPECT_EQ(1, traced.status);
  EXPECT_THAT(traced.output, HasSubstr("\n" + library_ + " is not the file that ran: its functions are elsewhere.\n"));
  EXPECT_THAT(library_frames(traced.output), Each(EndsWith("(libnested.so): not the file that ran")));
  EXPECT_THAT(traced.output, Not(HasSubstr("nested.cpp")));
}

// ---- Logs

TEST_F(starter_trace, reads_standard_input)
{
  const std::string log = dir_.write("x.log", log_of("11"));

  EXPECT_EQ(expected_frames("SIGSEGV"), library_frames(run(TESTS_TRACE " <" + log).output));
  EXPECT_EQ(expected_frames("SIGSEGV"), library_frames(run("cat " + log + " | " TESTS_TRACE " -").output));
}

TEST_F(starter_trace, tells_the_builds_of_two_processes_in_one_log_apart)
{
  const std::string first = log_of("11");
  const std::string store = store_debug_file();
  install("nested_rebuilt");
  const std::string second = log_of("11");
  fs::rename(debug_, debug_file(store, build_id_of(library_)));

  const Ended both = trace(first + second, "--debug-dir " + store);
  const Ended only_second = trace(second, "--debug-dir " + store);

  Texts expected = expected_frames("SIGSEGV");
  const Texts rest = library_frames(only_second.output);
  expected.insert(expected.end(), rest.begin(), rest.end());
  EXPECT_EQ(expected, library_frames(both.output)) << both.output;
  EXPECT_THAT(both.output, Not(HasSubstr("rebuilt since")));
}

// The lines of one log with those of the other in between, each with the name of its process.
static std::string mixed(const std::string& first, const std::string& second)
{
  const Texts lines[] = {lines_of(first), lines_of(second)};
  std::string text;
  for (std::size_t i = 0; i < std::max(lines[0].size(), lines[1].size()); ++i)
    for (std::size_t log = 0; log < 2; ++log)
      if (i < lines[log].size())
        text += "Nov 22 03:20:0" + std::to_string(i % 10) + " host starter[471" + std::to_string(log) +
                "]: " + lines[log][i] + '\n';
  return text;
}

TEST_F(starter_trace, keeps_the_back_traces_of_processes_apart_whose_lines_are_mixed)
{
  const Ended traced = trace(mixed("Beat 1.\n" + log_of("8"), log_of("6")));

  const std::size_t second = traced.output.find("\n\n");
  ASSERT_NE(std::string::npos, second) << traced.output;
  Texts first_frames = library_frames(traced.output.substr(0, second));
  Texts second_frames = library_frames(traced.output.substr(second));
  if (traced.output.find("starter[4711]: Signal 6") > second)
    EXPECT_THAT(traced.output, HasSubstr("host starter[4710]: Signal 8 (Floating point exception) caught in "));
  else
    std::swap(first_frames, second_frames);
  EXPECT_EQ(expected_frames("SIGFPE"), first_frames) << traced.output;
  EXPECT_EQ(expected_frames("SIGABRT"), second_frames) << traced.output;
}

TEST_F(starter_trace, resolves_a_trace_with_records_of_other_threads_between_its_lines)
{
  const std::string log = std::regex_replace(log_of("7"), std::regex("\n(/)"), "\nBeat 1.\nEcho has stopped.\n$1");

  EXPECT_EQ(expected_frames("SIGBUS"), library_frames(trace(log).output));
}

TEST_F(starter_trace, tells_of_a_frame_that_is_cut_off)
{
  const std::string log = log_of("11");
  const std::string frame = log.substr(log.find("descend") - 20, 20);
  const std::string cut = log.substr(0, log.find("descend", log.find("descend") + 1) + 3);
  const std::string modules = log.substr(log.find("\nModule ") + 1);

  for (const std::string& text : {cut, cut + modules, cut + "\nSignal 15 (Terminated) caught in [starter].\n" + modules,
                                  cut + "Signal 15 (Terminated) caught in [starter].\n" + modules}) {
    const Ended traced = trace(text);
    EXPECT_EQ(1, traced.status) << traced.output;
    EXPECT_THAT(traced.output, HasSubstr(": cut off in the log\n")) << text;
    EXPECT_EQ(Texts({expected_frames("SIGSEGV")[0], expected_frames("SIGSEGV")[1]}), library_frames(traced.output))
        << text << traced.output;
  }
}

TEST_F(starter_trace, finds_nothing_in_logs_without_a_back_trace)
{
  for (const std::string& log : {std::string(), std::string("Beat 1.\n\n.\n"), std::string("the back trace:\n.\n"),
                                 std::string("(+0x) [0x]\n]\n[\n[0x\n() []\nModule /, build-id , at 0x-0x\n"),
                                 std::string(1000, '\0'), std::string(20000000, 'x')}) {
    const Ended traced = trace(log);
    EXPECT_EQ(0, traced.status) << log.substr(0, 100) << traced.output;
    EXPECT_EQ("", traced.output);
  }
}

TEST_F(starter_trace, survives_bytes_that_are_no_log)
{
  const std::string valid = log_of("11");
  unsigned seed = 1;
  const auto random = [&seed] { return (seed = seed * 1664525 + 1013904223) >> 8; };
  for (int round = 0; round < 20; ++round) {
    std::string log = valid;
    for (int i = 0; i < 100; ++i)
      log[random() % log.size()] = static_cast<char>(random());
    const Ended traced = trace(log, round % 2 == 0 ? "" : "--json");
    EXPECT_THAT(traced.status, testing::AnyOf(0, 1)) << traced.output;
  }
}

TEST_F(starter_trace, finds_the_trace_behind_a_huge_line)
{
  const std::string huge(20000000, '(');

  EXPECT_EQ(expected_frames("SIGSEGV"), library_frames(trace(huge + '\n' + log_of("11") + huge).output));
}

TEST_F(starter_trace, opens_no_pipe_and_no_device_that_a_log_names)
{
  ASSERT_EQ(0, ::mkfifo((dir_ / "pipe").c_str(), 0666));
  for (const std::string& path : {dir_ / "pipe", std::string("/dev/zero"), dir_.path(), dir_.write("text", "text")}) {
    const Ended traced = trace(path + "(+0x10) [0x1010]\n.\nModule " + path + ", build-id 0123, at 0x1000-0x2000\n");
    EXPECT_EQ(1, traced.status) << traced.output;
    EXPECT_THAT(traced.output, HasSubstr(": the file cannot be read\n")) << path;
  }
}

TEST_F(starter_trace, names_the_frames_that_it_can_say_nothing_about)
{
  const Ended traced = trace("Signal 11 (Segmentation fault) caught in [starter], the back trace:\n"
                             "[(nil)]\n[0x1234]\nstarter(main+0x10) [0x5678]\n/no/such.so(_Z1fv-0x1) [0x9abc]\n.\n");

  EXPECT_EQ(1, traced.status);
  EXPECT_THAT(
      lines_of(traced.output),
      ElementsAre("Signal 11 (Segmentation fault) caught in [starter], the back trace:", "#0  0x0: in no module",
                  "#1  0x1234: in no module", "#2  main (starter): the log does not tell the path",
                  "#3  f() (such.so): the file is missing", "/no/such.so is missing."));
}

// ---- Output

TEST_F(starter_trace, writes_the_other_lines_of_the_log_too_if_asked)
{
  const std::string log = log_of("11");
  const Ended traced = trace(log, "--all");

  std::string others;
  for (const std::string& line : lines_of(traced.output))
    if (line[0] != '#' && line.compare(0, 9, "There is ") != 0)
      others += line + '\n';
  EXPECT_EQ(std::regex_replace(log, std::regex("[^\n]* \\[0x[0-9a-f]+\\]\n"), ""), others);
  EXPECT_EQ(expected_frames("SIGSEGV"), library_frames(traced.output));
}

TEST_F(starter_trace, writes_json_for_tools)
{
  EXPECT_EQ("{\"traces\": []}\n", trace("", "--json").output);

  const Ended traced = trace("a \"title\"\x01\xff\n/no/such.so(_Z1fv+0x1) [0x9abc]\n.\n", "--json");
  EXPECT_EQ(1, traced.status);
  EXPECT_EQ("{\"traces\": [\n"
            "  {\"title\": \"a \\\"title\\\"\\u0001\\ufffd\", \"frames\": [\n"
            "    {\"text\": \"/no/such.so(_Z1fv+0x1) [0x9abc]\", \"address\": \"0x9abc\", \"module\": \"/no/such.so\", "
            "\"build_id\": null, \"outcome\": \"missing\", \"places\": []}], \"notes\": [\n"
            "    \"/no/such.so is missing\"]}]}\n",
            traced.output);

  const std::string inlined = "{\"function\": \"nested::fault_in_line(char const*)\", \"file\": \"" +
                              std::string(SOURCE) + "\", \"line\": " + at("SIGSEGV").substr(sizeof SOURCE) +
                              ", \"inlined\": true}, " + "{\"function\": \"nested::Nested::descend(int)\", ";
  const Ended resolved = trace(only_of_library(log_of("11")), "--json");
  EXPECT_EQ(0, resolved.status);
  EXPECT_THAT(resolved.output, HasSubstr(", \"outcome\": \"resolved\", \"places\": [" + inlined));
  EXPECT_THAT(resolved.output, HasSubstr("\"build_id\": \"" + build_id_of(library_) + '"'));
}

TEST_F(starter_trace, tells_what_is_wrong_with_its_command_line)
{
  const std::pair<const char*, const char*> cases[] = {
      {"--none", "there is no option --none"},
      {"-x", "there is no option -x"},
      {"--all=yes", "there is no option --all=yes"},
      {"a b", "only one file can be read"},
      {"--debug-dir", "--debug-dir needs a value"},
      {"--unit=", "--unit needs a value"},
      {"-u", "-u needs a value"},
      {"--debug-dir a:b", "the path of --debug-dir must not have a colon"},
      {"--all --json", "--all and --json exclude each other"},
      {"-u demo x.log", "the journal is read, or a file, but not both"},
      {"--help x.log", "--help and --version stand alone"},
      {"/no/such.log", "cannot read /no/such.log: No such file or directory"},
      {"-- --help", "cannot read --help: No such file or directory"},
      {"/", "cannot read /: Is a directory"}};

  for (const auto& [arguments, text] : cases) {
    const Ended ended = run(std::string("cd / && " TESTS_TRACE " ") + arguments);
    EXPECT_EQ(2, ended.status) << arguments;
    EXPECT_EQ(std::string("starter-trace: ") + text + '\n', ended.output) << arguments;
  }
}

TEST_F(starter_trace, tells_its_usage_and_its_version)
{
  const Ended help = run(TESTS_TRACE " --help");
  EXPECT_EQ(0, help.status);
  EXPECT_THAT(help.output, StartsWith("Usage: starter-trace "));

  const Ended version = run(TESTS_TRACE " --version");
  EXPECT_EQ(0, version.status);
  EXPECT_THAT(version.output, testing::MatchesRegex("starter-trace [0-9.]+ \\(rev .*\\)\n"));
  EXPECT_EQ(2, run(TESTS_TRACE " --help >/dev/full").status);
}

// ---- The journal

// A stand-in for journalctl writes its arguments to a file, and a log.
static std::string journal_command(const Temp_Dir& dir, const std::string& log, const std::string& options,
                                   int status = 0)
{
  const std::string tool =
      dir.write("bin/journalctl", "#!/bin/sh\necho \"$*\" >" + dir / "arguments" + "\ncat " +
                                      dir.write("journal.log", log) + "\nexit " + std::to_string(status) + '\n');
  (void)::chmod(tool.c_str(), 0755);
  return "PATH=" + dir / "bin" + ":$PATH timeout 60 " TESTS_TRACE " " + options;
}

TEST_F(starter_trace, reads_the_journal_of_a_unit)
{
  const std::string log = log_of("11");

  const Ended traced = run(journal_command(dir_, log, "-u starter@demo --since yesterday"));
  EXPECT_EQ(expected_frames("SIGSEGV"), library_frames(traced.output)) << traced.output;
  EXPECT_EQ("--quiet --no-pager --all --output=cat --unit=starter@demo --since=yesterday\n",
            read_file(dir_ / "arguments"));

  EXPECT_EQ(expected_frames("SIGSEGV"), library_frames(run(journal_command(dir_, log, "--journal")).output));
  EXPECT_EQ("--quiet --no-pager --all --output=cat _COMM=starter\n", read_file(dir_ / "arguments"));
}

TEST_F(starter_trace, tells_that_the_journal_cannot_be_read)
{
  const Ended failed = run(journal_command(dir_, log_of("11"), "--journal", 1));
  EXPECT_EQ(2, failed.status);
  EXPECT_EQ("starter-trace: journalctl failed\n", failed.output);

  const Ended missing = run("PATH=/nowhere " TESTS_TRACE " --journal");
  EXPECT_EQ(2, missing.status);
  EXPECT_EQ("starter-trace: cannot start journalctl: No such file or directory\n", missing.output);
}
