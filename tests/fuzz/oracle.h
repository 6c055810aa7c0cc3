#ifndef TESTS_FUZZ_ORACLE_H
#define TESTS_FUZZ_ORACLE_H

// The fuzz targets share these functions. A target reads its input as text, does with it what the program does, and
// compares the outcome with one that it works out in another way; where the two differ it aborts, and ./scripts/fuzz
// keeps the input.
//
// To add a seed, put a small text file into tests/fuzz/corpus/TARGET/, named after what it shows; the beginning of
// TARGET_fuzz.cpp tells how the text is read. An input that has once found a mistake is added in the same way, after
// `build/fuzz/tests/fuzz/TARGET_fuzz -minimize_crash=1 -runs=100000 INPUT` has made it short.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using Texts = std::vector<std::string>;

/// Return the input as text, in which each of the first twenty "@" stands for a thousand letters "A": short inputs fill
/// large buffers too.
std::string input_text(const std::uint8_t* data, std::size_t size);

/// Return the input, read as above, cut at every end of line. The end of the last line may be missing, so that there
/// are as many texts as ends of line, or one more. No text has a zero byte in it: the line is cut there.
Texts input_lines(const std::uint8_t* data, std::size_t size);

/// Abort, with `what` and both texts on standard error, unless the texts are the same.
void expect_equal(const std::string& what, const std::string& expected, const std::string& actual);
void expect_equal(const std::string& what, const Texts& expected, const Texts& actual);

/// Abort, with `what` on standard error, unless `is_kept`.
void expect(bool is_kept, const std::string& what);

/// Set the environment variables A ("one"), B ("two words"), E (empty), Q ("it's"), and two with the longest names that
/// the framework can take, or nearly so: 4095 and 4094 letters "A", with the values "longest" and "long". No variable
/// that an input may name otherwise is set.
void set_environment();

#endif // TESTS_FUZZ_ORACLE_H
