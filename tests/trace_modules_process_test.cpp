// The records that name the modules of a fault's back trace.

#include "tests/support/command.h"
#include "tests/support/loops.h"
#include "tests/support/signal_records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include <signal.h>

namespace
{
struct Module
{
  std::string path;
  std::string build_id;
  std::uintptr_t begin;
  std::uintptr_t end;
};

struct Frame
{
  std::string module;
  std::uintptr_t address;
};
} // namespace

static std::uintptr_t number(const std::string& hexadecimal)
{
  return std::stoull(hexadecimal, nullptr, 16);
}

static std::vector<Module> modules_in(const std::string& log)
{
  static const std::regex record("(?:^|\n)Module ([^\n]*), build-id ([^ \n]*), at 0x([0-9a-f]+)-0x([0-9a-f]+)(?=\n)");

  std::vector<Module> modules;
  for (std::sregex_iterator i(log.begin(), log.end(), record); i != std::sregex_iterator(); ++i)
    modules.push_back({(*i)[1], (*i)[2], number((*i)[3]), number((*i)[4])});
  return modules;
}

static std::vector<Frame> frames_in(const std::string& log)
{
  static const std::regex frame("(?:^|\n)([^\n(]+)\\([^\n]*\\) \\[0x([0-9a-f]+)\\](?=\n)");

  std::vector<Frame> frames;
  for (std::sregex_iterator i(log.begin(), log.end(), frame); i != std::sregex_iterator(); ++i)
    frames.push_back({(*i)[1], number((*i)[2])});
  return frames;
}

static std::string build_id_of(const std::string& file)
{
  return without_newline(output_of("readelf -n " + file + " | sed -n 's/^ *Build ID: //p'"));
}

// Every frame must lie in the module of its name.
static void expect_modules_of_trace(const std::string& log)
{
  const std::vector<Module> modules = modules_in(log);
  const std::vector<Frame> frames = frames_in(log);
  EXPECT_LE(4u, modules.size()) << log; // the service, the framework, the C library and the program
  EXPECT_LE(5u, frames.size()) << log;

  for (const Frame& frame : frames) {
    const auto found = std::find_if(modules.begin(), modules.end(), [&](const Module& module) {
      return frame.address >= module.begin && frame.address < module.end;
    });
    ASSERT_NE(modules.end(), found) << std::hex << frame.address << '\n' << log;
    EXPECT_EQ(std::filesystem::path(frame.module).filename(), std::filesystem::path(found->path).filename()) << log;
  }
  for (const Module& module : modules) {
    EXPECT_TRUE(std::filesystem::equivalent(module.path, module.path)) << module.path;
    EXPECT_EQ(build_id_of(module.path), module.build_id) << module.path;
    EXPECT_EQ(1, std::count_if(modules.begin(), modules.end(), [&](const Module& m) { return m.path == module.path; }))
        << log;
  }
}

TEST(trace_modules, are_named_with_their_build_ids)
{
  for (const Loop& loop : LOOPS) {
    SCOPED_TRACE(loop.name);
    Starter_Process starter(with_service(loop.args, "crash", "_make_Crash", "page"));

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    expect_modules_of_trace(starter.log());
  }
}

TEST(trace_modules, follow_the_record_of_the_fault_as_information)
{
  Starter_Process starter(with_service({}, "crash", "_make_Crash", "page"), probed());
  EXPECT_EQ(0, starter.wait_status()) << starter.log();

  const std::vector<Record> records = starter.records();
  const auto is_fault = [](const Record& record) { return record.text.find("the back trace:") != std::string::npos; };
  const auto fault = std::find_if(records.begin(), records.end(), is_fault);
  ASSERT_NE(records.end(), fault) << starter.log();
  ASSERT_LE(4, records.end() - fault - 1) << starter.log();
  for (auto record = fault + 1; record != records.end(); ++record) {
    EXPECT_EQ(LM_INFO, record->priority) << *record;
    EXPECT_EQ(0, record->status) << *record;
    EXPECT_EQ("starter/starter.cpp", record->file) << *record;
    EXPECT_EQ(0u, record->text.find("Module /")) << *record;
  }
}

TEST(trace_modules, are_named_once_for_an_uncaught_exception_and_its_abort)
{
  Starter_Process starter(with_service({"--reactor", "tp", "--threads", "2"}, "thrower", "_make_Thrower", "timer std"));

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("Unhandled exception is caught, ")) << starter.log();
  expect_modules_of_trace(starter.log());
}

// The faulting thread holds the lock of the dynamic loader.
TEST(trace_modules, are_named_for_a_fault_while_a_library_is_loaded)
{
  Starter_Process starter(with_service({}, "check_crash", "_make_Nothing"));

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("the back trace:")) << starter.log();
  EXPECT_EQ(1u, starter.count("/libcheck_crash.so, build-id " + build_id_of(service_library("check_crash"))))
      << starter.log();
}

TEST(trace_modules, have_the_path_of_the_program_and_the_library_from_the_root)
{
  const std::string library = service_library("crash");
  const std::string relative = "../../../../../../../.." + library; // of any working directory
  Starter_Process starter({"-S", "dynamic Crash Service_Object * " + relative + ":_make_Crash() \"page\""});

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("\nstarter(_start+")) << starter.log(); // the trace names the program as it was started
  const std::string program = std::filesystem::canonical(starter_executable());
  EXPECT_EQ(1u, starter.count("\nModule " + program + ", build-id " + build_id_of(program) + ", at 0x"))
      << starter.log();
  EXPECT_EQ(1u,
            starter.count("\nModule " + starter.dir() / relative + ", build-id " + build_id_of(library) + ", at 0x"))
      << starter.log();
}

TEST(trace_modules, have_no_build_id_if_they_were_linked_without_one)
{
  const Temp_Dir dir;
  (void)output_of("objcopy --remove-section .note.gnu.build-id " + service_library("crash") + ' ' +
                  dir / "libcrash.so");
  Starter_Process starter({"-S", "dynamic Crash Service_Object * " + dir / "libcrash.so" + ":_make_Crash() \"page\""});

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("\nModule " + dir / "libcrash.so" + ", build-id none, at 0x")) << starter.log();
}

TEST(trace_modules, are_left_out_of_a_fault_without_a_back_trace)
{
  Starter_Process starter(with_service({"--reactor", "tp", "--threads", "4"}, "crash", "_make_Crash", "heap"));

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("the back trace:\n")) << starter.log();
  EXPECT_EQ(0u, starter.count("Module ")) << starter.log();
}

TEST(trace_modules, that_fault_when_they_are_named_give_no_record_of_a_fault_and_leave_exit_handlers_their_turn)
{
  Start_Options options;
  options.preload = {preload_library("fault_in_log"), preload_library("exit_witness")};
  options.env["FAULT_IN_RECORD"] = "Module ";

  for (const char* const how : {"page", "abort"}) // the second fault is of the same kind, or of another one
    for (const Loop& loop : LOOPS) {
      SCOPED_TRACE(testing::Message() << loop.name << ' ' << how);
      Starter_Process starter(with_service(loop.args, "crash", "_make_Crash", how), options);

      EXPECT_EQ(0, starter.wait_status()) << starter.log();
      EXPECT_EQ(1u, starter.count("caught in")) << starter.log();
      EXPECT_EQ(0u, starter.count("Module ")) << starter.log();
      EXPECT_EQ(1u, starter.count("exit handler ran")) << starter.log();
      EXPECT_EQ(1u, starter.count("static destructor ran")) << starter.log();
    }
}
