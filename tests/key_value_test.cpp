#include "scrt/key_value.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

using Entry = Key_Value_T<int>;

TEST(key_value, finds_the_entry_of_a_name)
{
  Entry table[] = {{"one", 1}, {"two", 2}, {"three", 3}, {nullptr, -1}};

  EXPECT_EQ(&table[0], get_key_value_entry(table, "one"));
  EXPECT_EQ(&table[1], get_key_value_entry(table, "two"));
  EXPECT_EQ(&table[2], get_key_value_entry(table, "three"));
}

TEST(key_value, compares_the_text_of_names_and_not_their_address)
{
  Entry table[] = {{"one", 1}, {nullptr, -1}};
  const std::string name("one");

  EXPECT_EQ(&table[0], get_key_value_entry(table, name.c_str()));
}

TEST(key_value, answers_a_miss_with_the_terminator)
{
  Entry table[] = {{"one", 1}, {"two", 2}, {nullptr, -1}};

  for (const char* const name : {"", "One", "ONE", "on", "ones", "one ", " one", "three"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(&table[2], get_key_value_entry(table, name));
  }
  EXPECT_EQ(-1, get_key_value_entry(table, "three")->value);
}

TEST(key_value, never_matches_a_null_name)
{
  Entry table[] = {{"one", 1}, {"", 0}, {nullptr, -1}};

  EXPECT_EQ(&table[2], get_key_value_entry(table, nullptr));
}

TEST(key_value, finds_an_empty_name_where_the_table_has_one)
{
  Entry table[] = {{"one", 1}, {"", 0}, {nullptr, -1}};

  EXPECT_EQ(&table[1], get_key_value_entry(table, ""));
}

TEST(key_value, takes_the_first_of_equal_names)
{
  Entry table[] = {{"one", 1}, {"two", 2}, {"one", 3}, {nullptr, -1}};

  EXPECT_EQ(&table[0], get_key_value_entry(table, "one"));
}

TEST(key_value, looks_at_nothing_behind_the_terminator)
{
  Entry table[] = {{"one", 1}, {nullptr, -1}, {"two", 2}};

  EXPECT_EQ(&table[1], get_key_value_entry(table, "two"));
}

TEST(key_value, finds_nothing_in_an_empty_table)
{
  Entry table[] = {{nullptr, -1}};

  EXPECT_EQ(&table[0], get_key_value_entry(table, "one"));
  EXPECT_EQ(&table[0], get_key_value_entry(table, ""));
  EXPECT_EQ(&table[0], get_key_value_entry(table, nullptr));
}

TEST(key_value, distinguishes_bytes_beyond_ascii)
{
  Entry table[] = {{"\xc3\xa4", 1}, {"\xe4", 2}, {nullptr, -1}};

  EXPECT_EQ(1, get_key_value_entry(table, "\xc3\xa4")->value);
  EXPECT_EQ(2, get_key_value_entry(table, "\xe4")->value);
  EXPECT_EQ(-1, get_key_value_entry(table, "\xc4")->value);
}

TEST(key_value, serves_constant_tables_of_any_value)
{
  static const Key_Value_T<const char*> table[] = {{"red", "#f00"}, {nullptr, "none"}};

  EXPECT_STREQ("#f00", get_key_value_entry(table, "red")->value);
  EXPECT_STREQ("none", get_key_value_entry(table, "blue")->value);
}

TEST(key_value, is_a_record_that_tables_initialise_statically)
{
  EXPECT_TRUE(std::is_aggregate<Entry>::value);
  EXPECT_TRUE(std::is_trivial<Entry>::value);
}
