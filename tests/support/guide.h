#ifndef TESTS_SUPPORT_GUIDE_H
#define TESTS_SUPPORT_GUIDE_H

#include <string>
#include <vector>

/// A block of a guide, which is fenced by three backticks with a word after them:
///   sh          commands, for one shell that goes through the whole guide
///   shell       commands of root on a machine with systemd that has nothing of this project yet, for one shell too
///   every       commands of root on every machine of a cluster
///   one         commands of root on one machine of the cluster
///   text        lines that the commands before it write, in this order, whatever their numbers
///   WORD PATH   the content of the file PATH
struct Block
{
  std::string kind;
  std::string path; ///< empty unless the block is a file
  std::string text;
};

/// The blocks of the text `guide`, in their order. The test fails if the last one is not closed.
std::vector<Block> blocks_of(const std::string& guide);

/// One script for bash of all commands of `kind`. It writes each file at its place among them.
std::string script_of(const std::vector<Block>& blocks, const std::string& kind);

/// The test fails unless `output`, which a script of these blocks has written, has the lines that the guide promises
/// after commands of `kind`. Returns the number of blocks with such commands.
unsigned expect_promised_output(const std::vector<Block>& blocks, const std::string& kind, const std::string& output);

/// The test fails unless each line of `expected` is part of a line of `output`, in order and whatever the numbers.
/// Three dots in a line of `expected` stand for any text.
void expect_lines(const std::string& expected, const std::string& output);

#endif // TESTS_SUPPORT_GUIDE_H
