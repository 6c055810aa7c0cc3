#include "starter/starter.h"

#include <gtest/gtest.h>

#include <tuple>

using Row = std::tuple<const char*, ACE_INT64>;

static void expect_rows(std::initializer_list<Row> rows)
{
  for (const auto& [text, value] : rows) {
    SCOPED_TRACE(::testing::PrintToString(text));
    EXPECT_EQ(value, parse_uid_gid(text));
  }
}

TEST(parse_uid_gid, takes_every_32_bit_number)
{
  expect_rows({{"0", 0},
               {"1", 1},
               {"65534", 65534},
               {"2147483648", 2147483648},
               {"4294967294", 4294967294},
               {"4294967295", 4294967295}});
}

TEST(parse_uid_gid, takes_numbers_out_of_range_for_names)
{
  expect_rows({{"4294967296", -1},
               {"8589934591", -1},
               {"9223372036854775807", -1},
               {"9223372036854775808", -1},
               {"18446744073709551616", -1},
               {"-1", -1},
               {"-4294967295", -1},
               {"-4294967296", -1},
               {"-9223372036854775808", -1},
               {"-99999999999999999999", -1}});
}

TEST(parse_uid_gid, takes_digits_with_text_behind_them_for_a_name)
{
  expect_rows({{"4x", -1}, {"12ab", -1}, {"7 ", -1}, {"7\n", -1}, {"1.0", -1}, {"0x10", -1}, {"1 2", -1}});
}

TEST(parse_uid_gid, takes_text_without_digits_for_a_name)
{
  expect_rows({{"root", -1}, {" ", -1}, {"+", -1}, {"-", -1}, {"x1", -1}, {"\xc3\xa9", -1}});
}

TEST(parse_uid_gid, reads_the_empty_text_as_id_0)
{
  expect_rows({{"", 0}});
}

TEST(parse_uid_gid, accepts_white_space_a_plus_sign_and_zeros_in_front)
{
  expect_rows(
      {{" 7", 7}, {" \t\n\v\f\r7", 7}, {"+7", 7}, {" +7", 7}, {"010", 10}, {"0000000000000004294967295", 4294967295}});
}

TEST(parse_uid_gid, reads_minus_zero_as_id_0)
{
  expect_rows({{"-0", 0}, {"-00", 0}});
}
