// The results of two runs of the benchmarks are put beside each other.

#include "tests/support/command.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

using testing::EndsWith;
using testing::HasSubstr;

// A line of results. `figures` are the lower quartile, the median, the upper quartile and the ratio.
static std::string line(const std::string& measured, const std::string& figures, const std::string& subject = "starter")
{
  std::string text = "dispatch\t" + measured + '\t' + subject;
  std::istringstream words(figures);
  for (std::string word; words >> word;)
    text += '\t' + word;
  return text + '\n';
}

static Ended compare(const std::string& old_results, const std::string& new_results)
{
  const Temp_Dir dir;
  return run(TESTS_BENCH_SCRIPT " --compare " + dir.write("old.tsv", old_results) + ' ' +
             dir.write("new.tsv", new_results));
}

TEST(bench_compare, judges_lines_by_their_ratios_medians_and_quartiles)
{
  const char* const time = "time, us";
  const char* const rate = "1 connections: requests for each second";
  const char* const count = "instructions, thousands";
  const std::tuple<const char*, const char*, const char*, const char*, const char*> cases[] = {
      {time, "9 10 11 2.000", "12 13 14 2.200", "worse", "the ratio and the quartiles are higher"},
      {time, "12 13 14 2.200", "9 10 11 2.000", "better", "the ratio and the quartiles are lower"},
      {time, "9 10 11 2.000", "12 13 14 2.080", "same", "the machine was slower, the ratio is almost the same"},
      {time, "9 10 13 2.000", "12 13 14 2.200", "same", "the quartiles overlap"},
      {time, "9 10 11 1.000", "12 13 14 1.000", "worse", "a reference is judged by its median"},
      {time, "9 10 11 -", "12 13 14 -", "worse", "without a ratio, the median counts"},
      {time, "0 0 0 -", "12 13 14 -", "same", "there is nothing to divide by"},
      {rate, "12 13 14 2.000", "9 10 11 1.500", "worse", "a lower rate is worse"},
      {rate, "9 10 11 1.500", "12 13 14 2.000", "better", "a higher rate is better"},
      {count, "100 100 100 1.000", "102 102 102 1.020", "worse", "instructions are counted without an error"},
      {time, "100 100 100 1.000", "102 102 102 1.020", "same", "times are not"}};

  for (const auto& [measured, before, after, judgement, why] : cases) {
    SCOPED_TRACE(why);
    const Ended ended = compare(line(measured, before), line(measured, after));

    EXPECT_EQ(0, ended.status) << ended.output;
    const std::vector<std::string> lines = lines_of(ended.output);
    ASSERT_EQ(3U, lines.size()) << ended.output; // with the heading and the counts
    EXPECT_THAT(lines[1], EndsWith(std::string(" ") + judgement));
  }
}

TEST(bench_compare, shows_lines_of_one_run_and_counts_all)
{
  const std::string kept = line("time, us", "1 1 1 1.000");
  const Ended ended =
      compare(kept + line("time, us", "2 2 2 -", "gone by"), kept + line("time, us", "3 3 3 -", "come up"));

  EXPECT_EQ(0, ended.status);
  const std::vector<std::string> lines = lines_of(ended.output);
  ASSERT_EQ(5U, lines.size()) << ended.output;
  EXPECT_THAT(lines[2], testing::AllOf(HasSubstr("come up"), EndsWith(" new")));
  EXPECT_THAT(lines[3], testing::AllOf(HasSubstr("gone by"), EndsWith(" gone")));
  EXPECT_EQ("0 better, 0 worse, 1 the same, 1 new, 1 gone", lines[4]);
}

TEST(bench_compare, refuses_files_that_hold_no_results)
{
  const Ended ended = compare(line("time, us", "1 1 1 1.000"), "something else\n");

  EXPECT_EQ(1, ended.status);
  EXPECT_THAT(ended.output, HasSubstr("new.tsv holds no results of scripts/bench."));
}

TEST(bench_compare, takes_paths_as_the_caller_means_them)
{
  const Temp_Dir dir;
  (void)dir.write("one.tsv", line("time, us", "1 1 1 1.000"));

  const Ended ended = run("cd " + dir.path() + " && " TESTS_BENCH_SCRIPT " --compare one.tsv one.tsv");

  EXPECT_EQ(0, ended.status) << ended.output;
  EXPECT_THAT(ended.output, HasSubstr("1 the same"));
}
