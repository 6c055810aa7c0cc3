// The parts of starter-trace: the lines of a log, and addresses of a process that are led back to lines.

#include "tests/support/temp_dir.h"
#include "trace/log.h"
#include "trace/symboliser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <dlfcn.h>
#include <link.h>

using testing::ElementsAre;
using testing::EndsWith;

// ---- Lines

TEST(trace_log_line, tells_the_writer_from_the_text)
{
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"/lib/x.so(+0x1) [0x2]", "", "/lib/x.so(+0x1) [0x2]"},
      {"Nov 22 03:20:07 host starter[4711]: Beat 1.", "starter[4711]", "Beat 1."},
      {"starter[1]:   x ", "starter[1]", "x"},
      {"   x\r", "", "x"},
      {"caught in [starter]: x", "", "caught in [starter]: x"},
      {"[]: x", "", "[]: x"},
      {"12]: x", "", "12]: x"},
      {"", "", ""}};

  for (const auto& [line, writer, text] : cases) {
    const Log_Line parts = split_line(line);
    EXPECT_EQ(writer, parts.writer) << line;
    EXPECT_EQ(text, parts.text) << line;
  }
}

TEST(trace_log_line, reads_every_form_of_a_frame)
{
  const std::tuple<const char*, const char*, const char*, std::int64_t, bool, std::uint64_t> cases[] = {
      {"/lib/x.so(f+0x1f) [0x7f00]", "/lib/x.so", "f", 0x1f, true, 0x7f00},
      {"/lib/x.so(f-0x1f) [0x7f00]", "/lib/x.so", "f", -0x1f, true, 0x7f00},
      {"/lib/x.so(+0x291d) [0x7f00]", "/lib/x.so", "", 0x291d, true, 0x7f00},
      {"starter() [0x401000]", "starter", "", 0, false, 0x401000},
      {"[0xffffffffffffffff]", "", "", 0, false, UINT64_MAX},
      {"[(nil)]", "", "", 0, false, 0},
      {"/a (b)/c d.so(+0x1) [0x2]", "/a (b)/c d.so", "", 1, true, 2},
      {"2026-11-22T03:20:07Z /lib/x y.so(+0x1) [0x2]", "/lib/x y.so", "", 1, true, 2}};

  for (const auto& [text, module, symbol, offset, has_offset, address] : cases) {
    const std::optional<Frame_Line> frame = parse_frame(text);
    ASSERT_TRUE(frame) << text;
    EXPECT_EQ(module, frame->module) << text;
    EXPECT_EQ(symbol, frame->symbol) << text;
    EXPECT_EQ(offset, frame->offset) << text;
    EXPECT_EQ(has_offset, frame->has_offset) << text;
    EXPECT_EQ(address, frame->address) << text;
  }
}

TEST(trace_log_line, takes_nothing_else_for_a_frame)
{
  for (const char* const text : {"", "[", "]", "[]", "[0x]", "[0xg]", "[0x1", "0x1]", "[0x10000000000000000]",
                                 "x [0x1]", "(+0x1) [0x2]", "/x.so(+1) [0x2]", "/x.so(f) [0x2]", "/x.so+0x1) [0x2]",
                                 "/x.so(+0x1) [2]", "/x.so(+0x1) [0x2] .", "/x.so(+0x1g) [0x2]", "/x.so(+0x1) [0x2g]"})
    EXPECT_FALSE(parse_frame(text)) << text;
}

TEST(trace_log_line, reads_the_module_behind_what_was_cut_off)
{
  for (const char* const begin : {"", "/lib/x.so(_ZN11ACE_Rea"}) {
    const std::optional<Module> module =
        parse_module(std::string(begin) + "Module /a, build-id b/c.so (deleted), build-id 0a1b, at 0x1000-0x2fff");
    ASSERT_TRUE(module) << begin;
    EXPECT_EQ("/a, build-id b/c.so", module->path);
    EXPECT_EQ("0a1b", module->build_id);
    EXPECT_EQ(0x1000u, module->begin);
    EXPECT_EQ(0x2fffu, module->end);
  }
  EXPECT_EQ("", parse_module("Module /a, build-id none, at 0x1-0x2")->build_id);
  for (const char* const text : {"Module a, build-id 0a, at 0x1-0x2", "Module /a, build-id 0A, at 0x1-0x2",
                                 "Module /a, build-id , at 0x1-0x2", "Module /a, build-id 0a, at 0x1", "Module /a",
                                 "Module /a, build-id 0a, at 0x1-0x2 and more", ", at 0x1-0x2, build-id 0aModule /a"})
    EXPECT_FALSE(parse_module(text)) << text;
}

// ---- Logs

namespace
{
struct Close_File
{
  void operator()(std::FILE* file) const { (void)std::fclose(file); }
};
} // namespace

static Log log_of(const std::string& text)
{
  const Temp_Dir dir;
  const std::unique_ptr<std::FILE, Close_File> file(std::fopen(dir.write("x.log", text).c_str(), "r"));
  Log log;
  EXPECT_TRUE(read_log(file.get(), false, log));
  return log;
}

TEST(trace_log, takes_the_first_address_after_a_signal_for_that_of_an_instruction)
{
  const Log log = log_of("Signal 11 (x) caught in [x], the back trace:\n/x(+0x1) [0x1]\n/x(+0x2) [0x2]\n.\n"
                         "Unhandled exception is caught, the text\nof two lines\n/x(+0x3) [0x3]\n.\n"
                         "Somebody's own:\n/x(+0x4) [0x4]\n");

  ASSERT_EQ(3u, log.traces.size());
  EXPECT_EQ("Unhandled exception is caught, the text", log.traces[1].title);
  EXPECT_EQ("Somebody's own:", log.traces[2].title);
  std::vector<bool> interrupted;
  for (const Trace& trace : log.traces)
    for (const Frame& frame : trace.frames)
      interrupted.push_back(frame.is_interrupted);
  EXPECT_THAT(interrupted, ElementsAre(true, false, false, false));
}

// The addresses of two processes may be the same. Records of modules come after the back traces they belong to.
TEST(trace_log, gives_each_frame_the_module_that_is_named_after_it)
{
  const std::string frame = "/lib/x.so(+0x1) [0x1001]\n.\n";
  const Log log = log_of(frame + frame + "Module /opt/y.so, build-id 0a, at 0x1000-0x2000\n" +
                         "Module /opt/x.so, build-id 0b, at 0x1000-0x2000\n" + frame +
                         "Module /opt/x.so, build-id 0c, at 0x2000-0x3000\n" +
                         "Module /opt/x.so, build-id 0d, at 0x1000-0x2000\n" + frame);

  ASSERT_EQ(4u, log.traces.size());
  EXPECT_EQ("0b", log.traces[0].frames[0].module->build_id);
  EXPECT_EQ("0b", log.traces[1].frames[0].module->build_id);
  EXPECT_EQ("0d", log.traces[2].frames[0].module->build_id);
  EXPECT_EQ(nullptr, log.traces[3].frames[0].module);
}

// ---- Addresses of a living process

[[gnu::noinline]] static std::uintptr_t return_address()
{
  return reinterpret_cast<std::uintptr_t>(__builtin_return_address(0));
}

TEST(trace_symboliser, leads_an_address_of_this_process_back_to_its_line)
{
  const std::uintptr_t address = return_address();
  const int line = __LINE__ - 1;

  dl_find_object found;
  ASSERT_EQ(0, _dl_find_object(reinterpret_cast<void*>(address), &found));
  Module module;
  module.path = std::filesystem::canonical("/proc/self/exe");
  module.begin = reinterpret_cast<std::uintptr_t>(found.dlfo_map_start);
  module.end = reinterpret_cast<std::uintptr_t>(found.dlfo_map_end);
  Symboliser symboliser({});

  const Resolution resolution = symboliser.resolve(module, address, false);

  ASSERT_EQ(Outcome::RESOLVED, resolution.outcome);
  EXPECT_THAT(resolution.places.front().file, EndsWith("tests/trace_test.cpp"));
  EXPECT_EQ(line, resolution.places.front().line);
  EXPECT_THAT(resolution.places.back().function, testing::HasSubstr("TestBody"));

  module.build_id = "0123456789";
  EXPECT_EQ(Outcome::REBUILT, symboliser.resolve(module, address, false).outcome);
}
