#include "scrt/snprintf_t.h"

#include "tests/support/libc_probe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <type_traits>

using testing::ElementsAre;

// A buffer that shows where it keeps its text.
template <unsigned N>
class Open_Buffer : public snprintf_t<N, char>
{
public:
  Open_Buffer() = default;
  template <typename... Args>
  explicit Open_Buffer(const char* fmt, Args... args) : snprintf_t<N, char>(fmt, args...)
  {
  }

  using snprintf_t<N, char>::buf_;
  using snprintf_t<N, char>::len_;
  using snprintf_t<N, char>::ptr_;
  using snprintf_t<N, char>::size_;

  bool is_in_place() const { return this->c_str() == buf_ && !ptr_ && size_ == 0; }
};

using Buffer = Open_Buffer<4096>;

// The C locale has no bytes for this character, so the C library fails to format it.
static const wchar_t* const UNFORMATTABLE = L"\x20ac";

// A text of `length` characters in which no two longer passages are alike.
static std::string text_of(std::size_t length)
{
  std::string text;
  for (unsigned n = 0; text.size() < length; ++n)
    text += std::to_string(n) + ' ';
  text.resize(length);
  return text;
}

TEST(snprintf_t, starts_empty)
{
  const Buffer buffer;

  EXPECT_STREQ("", buffer.c_str());
  EXPECT_EQ(0, buffer.length());
  EXPECT_TRUE(buffer.is_in_place());
}

TEST(snprintf_t, is_constructed_with_a_text)
{
  const Buffer buffer("%s=%d%c", "answer", 42, '!');

  EXPECT_STREQ("answer=42!", buffer.c_str());
  EXPECT_EQ(10, buffer.length());
  EXPECT_TRUE(buffer.is_in_place());
}

TEST(snprintf_t, is_constructed_with_a_text_that_does_not_fit)
{
  const std::string text = text_of(5000);

  const Buffer buffer("%s", text.c_str());

  EXPECT_EQ(text, buffer.c_str());
  EXPECT_EQ(5000, buffer.length());
  EXPECT_EQ(5001U, buffer.size_);
}

TEST(snprintf_t, keeps_the_result_of_a_failed_construction_as_its_length)
{
  const Buffer buffer("%ls", UNFORMATTABLE);

  EXPECT_LT(buffer.length(), 0);
}

TEST(snprintf_t, formats_anew_on_set)
{
  Buffer buffer("%s", "a longer text");

  EXPECT_EQ(2, buffer.set("%d", 12));

  EXPECT_STREQ("12", buffer.c_str());
  EXPECT_EQ(2, buffer.length());
}

TEST(snprintf_t, takes_an_empty_text)
{
  Buffer buffer("%s", "former");

  EXPECT_EQ(0, buffer.set("%s", ""));

  EXPECT_STREQ("", buffer.c_str());
  EXPECT_EQ(0, buffer.length());
}

TEST(snprintf_t, hands_out_the_current_buffer_writable)
{
  Buffer small("%s", "small");
  Buffer large("%s", text_of(5000).c_str());
  small.data()[0] = 'S';
  large.data()[0] = 'L';

  EXPECT_EQ(small.buf_, small.data());
  EXPECT_STREQ("Small", small.c_str());
  EXPECT_EQ(large.ptr_, large.data());
  EXPECT_EQ('L', large.c_str()[0]);
}

template <unsigned N>
static int set_through_list(Open_Buffer<N>& buffer, const char* fmt, ...)
{
  va_list args;
  va_start(args, fmt);
  const int first = buffer.vset(fmt, &args);
  const int second = buffer.vset(fmt, &args); // the caller's list is as it was
  va_end(args);

  return first == second ? first : -1000;
}

TEST(snprintf_t, leaves_the_argument_list_as_it_was)
{
  Buffer buffer;

  EXPECT_EQ(5, set_through_list(buffer, "%s-%d", "abc", 7));
  EXPECT_STREQ("abc-7", buffer.c_str());

  EXPECT_EQ(6000, set_through_list(buffer, "%*d", 6000, 7));
  EXPECT_EQ(std::string(5999, ' ') + '7', buffer.c_str());
}

TEST(snprintf_t, formats_texts_up_to_4095_characters_once_and_without_the_heap)
{
  for (const std::size_t length : {0U, 1U, 127U, 128U, 4094U, 4095U}) {
    SCOPED_TRACE(length);
    const std::string text = text_of(length);
    std::string seen(length, '\0');
    int result = -1;
    bool is_in_place = false;

    const Libc_Calls calls = libc_calls_of([&] {
      Buffer buffer("%s", text.c_str());
      result = buffer.length();
      is_in_place = buffer.is_in_place();
      seen.assign(buffer.c_str(), static_cast<std::size_t>(result));
    });

    EXPECT_EQ(0U, calls.allocations);
    EXPECT_THAT(calls.rooms, ElementsAre(4096U));
    EXPECT_EQ(static_cast<int>(length), result);
    EXPECT_TRUE(is_in_place);
    EXPECT_EQ(text, seen);
  }
}

TEST(snprintf_t, moves_to_the_heap_at_4096_characters_after_one_more_formatting)
{
  const std::string text = text_of(4096);
  Buffer buffer;
  int result = -1;

  const Libc_Calls calls = libc_calls_of([&] { result = buffer.set("%s", text.c_str()); });

  EXPECT_EQ(4096, result);
  EXPECT_EQ(4096, buffer.length());
  EXPECT_EQ(4097U, buffer.size_);
  EXPECT_EQ(buffer.ptr_, buffer.c_str());
  EXPECT_EQ(text, buffer.c_str());
  EXPECT_EQ(1U, calls.allocations);
  EXPECT_THAT(calls.rooms, ElementsAre(4096U, 4097U));
}

// Kept: a C library that cannot tell the length returns one more than the room.
TEST(snprintf_t, doubles_a_length_of_one_more_than_the_room)
{
  const std::string text = text_of(4097);
  Buffer buffer;
  int result = -1;

  const Libc_Calls calls = libc_calls_of([&] {
    errno = EINTR; // an old error costs no further formatting
    result = buffer.set("%s", text.c_str());
  });

  EXPECT_EQ(4097, result);
  EXPECT_EQ(2U * 4097U + 1U, buffer.size_);
  EXPECT_EQ(text, buffer.c_str());
  EXPECT_EQ(1U, calls.allocations);
  EXPECT_THAT(calls.rooms, ElementsAre(4096U, 8195U));
}

TEST(snprintf_t, grows_to_the_length_when_it_is_beyond_one_more_than_the_room)
{
  const std::string text = text_of(4098);
  Buffer buffer;

  const Libc_Calls calls = libc_calls_of([&] { buffer.set("%s", text.c_str()); });

  EXPECT_EQ(4099U, buffer.size_);
  EXPECT_EQ(text, buffer.c_str());
  EXPECT_THAT(calls.rooms, ElementsAre(4096U, 4099U));
}

TEST(snprintf_t, starts_in_its_heap_buffer_when_it_has_one)
{
  Buffer buffer("%s", text_of(4096).c_str());
  const char* const heap = buffer.ptr_;

  const Libc_Calls calls = libc_calls_of([&] { buffer.set("%s", "short"); });

  EXPECT_STREQ("short", buffer.c_str());
  EXPECT_EQ(5, buffer.length());
  EXPECT_EQ(heap, buffer.ptr_);
  EXPECT_EQ(4097U, buffer.size_);
  EXPECT_EQ(0U, calls.allocations);
  EXPECT_THAT(calls.rooms, ElementsAre(4097U));
}

TEST(snprintf_t, grows_from_the_room_of_its_heap_buffer)
{
  Buffer buffer("%s", text_of(4096).c_str());
  const std::string doubled = text_of(4098); // one more than the room of 4097
  const std::string longer = text_of(20000);

  const Libc_Calls calls = libc_calls_of([&] { buffer.set("%s", doubled.c_str()); });
  EXPECT_THAT(calls.rooms, ElementsAre(4097U, 2U * 4098U + 1U));
  EXPECT_EQ(2U * 4098U + 1U, buffer.size_);
  EXPECT_EQ(doubled, buffer.c_str());

  EXPECT_EQ(20000, buffer.set("%s", longer.c_str()));
  EXPECT_EQ(20001U, buffer.size_);
  EXPECT_EQ(longer, buffer.c_str());
}

TEST(snprintf_t, takes_any_capacity)
{
  const struct
  {
    const char* text;
    unsigned size;
  } cases[] = {{"1234567", 0}, {"12345678", 9}, {"123456789", 19}, {"1234567890", 11}};

  for (const auto& [text, size] : cases) {
    SCOPED_TRACE(text);
    const Open_Buffer<8> buffer("%s", text);

    EXPECT_STREQ(text, buffer.c_str());
    EXPECT_EQ(static_cast<int>(std::strlen(text)), buffer.length());
    EXPECT_EQ(size, buffer.size_);
  }
}

TEST(snprintf_t, keeps_the_truncated_text_when_memory_runs_out)
{
  for (const std::size_t length : {4096U, 4097U, 10000U}) {
    SCOPED_TRACE(length);
    const std::string text = text_of(length);
    Buffer buffer;
    int result = 0;
    int error = 0;
    {
      const Failing_Realloc no_memory;
      result = buffer.set("%s", text.c_str());
      error = errno;
    }

    EXPECT_EQ(-1, result);
    EXPECT_EQ(ENOMEM, error);
    EXPECT_EQ(0, buffer.length());
    EXPECT_TRUE(buffer.is_in_place());
    EXPECT_EQ(text.substr(0, 4095), buffer.c_str());
  }
}

TEST(snprintf_t, keeps_its_heap_buffer_when_memory_runs_out)
{
  Buffer buffer("%s", text_of(4096).c_str());
  char* const heap = buffer.ptr_;
  const std::string text = text_of(9000);
  int result = 0;
  {
    const Failing_Realloc no_memory;
    result = buffer.set("%s", text.c_str());
  }

  EXPECT_EQ(-1, result);
  EXPECT_EQ(0, buffer.length());
  EXPECT_EQ(heap, buffer.ptr_);
  EXPECT_EQ(4097U, buffer.size_);
  EXPECT_EQ(text.substr(0, 4096), buffer.c_str());

  EXPECT_EQ(9000, buffer.set("%s", text.c_str())) << "with memory again";
  EXPECT_EQ(text, buffer.c_str());
}

// The framework reports an error as one more than the room. A loop that believed this would grow the room for ever.
TEST(snprintf_t, returns_a_formatting_error_at_once)
{
  const struct
  {
    const char* name;
    int before; // characters in front of the one that cannot be formatted
    int old_errno;
  } cases[] = {{"at the start", 0, 0},
               {"after some text", 10, 0},
               {"beyond the room", 5000, 0},
               {"with an older error", 10, ENOENT},
               {"with the same error before", 10, EILSEQ}};

  for (const auto& [name, before, old_errno] : cases) {
    SCOPED_TRACE(name);
    Buffer buffer("%s", "former");
    int result = 0;
    int error = 0;

    const Libc_Calls calls = libc_calls_of([&, before = before, old_errno = old_errno] {
      errno = old_errno;
      result = buffer.set("%*s%ls", before, "", UNFORMATTABLE);
      error = errno;
    });

    EXPECT_LT(result, 0);
    EXPECT_EQ(result, buffer.length());
    EXPECT_EQ(EILSEQ, error);
    EXPECT_TRUE(buffer.is_in_place());
    EXPECT_EQ(4096U, calls.rooms.at(0));
    for (const std::size_t room : calls.rooms)
      EXPECT_LE(room, 4096U);
  }
}

TEST(snprintf_t, returns_a_formatting_error_in_its_heap_buffer_and_can_go_on)
{
  Buffer buffer("%s", text_of(4096).c_str());

  EXPECT_LT(buffer.set("%lc", static_cast<wint_t>(0x20ac)), 0);
  EXPECT_EQ(4097U, buffer.size_);

  EXPECT_EQ(2, buffer.set("%s", "ok"));
  EXPECT_STREQ("ok", buffer.c_str());
}

// An error looks like one more than the room. It is told from such a length whatever errno was before, even if it was
// the very errno of this error.
TEST(snprintf_t, returns_an_error_for_a_text_longer_than_an_int_can_tell)
{
  for (const int old_errno : {0, EINTR, EILSEQ, EINVAL, ENOMEM, EOVERFLOW}) {
    SCOPED_TRACE(old_errno);
    Buffer buffer;
    errno = old_errno;
    const int result = set_through_list(buffer, "%99999999999d", 1);
    const int error = errno;

    EXPECT_EQ(-1, result);
    EXPECT_EQ(EOVERFLOW, error);
    EXPECT_EQ(-1, buffer.length());
    EXPECT_TRUE(buffer.is_in_place());
  }
}

TEST(snprintf_t, returns_an_error_for_a_format_that_ends_in_a_conversion)
{
  for (const int old_errno : {0, EINTR, EINVAL}) {
    SCOPED_TRACE(old_errno);
    Buffer buffer;
    errno = old_errno;
    const int result = set_through_list(buffer, "100 %");
    const int error = errno;

    EXPECT_EQ(-1, result);
    EXPECT_EQ(EINVAL, error);
    EXPECT_TRUE(buffer.is_in_place());
  }
}

TEST(snprintf_t, does_not_take_one_more_than_the_room_for_an_error)
{
  const std::string text = text_of(4097);

  for (const int old_errno : {0, ENOENT, EILSEQ, EINVAL, EOVERFLOW, ENOMEM}) {
    SCOPED_TRACE(old_errno);
    Buffer buffer;
    errno = old_errno;
    const int result = buffer.set("%s", text.c_str());
    const int error = errno;

    EXPECT_EQ(4097, result);
    EXPECT_EQ(old_errno, error);
    EXPECT_EQ(8195U, buffer.size_);
    EXPECT_EQ(text, buffer.c_str());
  }
}

TEST(snprintf_t, leaves_errno_alone)
{
  for (const std::size_t length : {0U, 10U, 4095U, 4096U, 4097U, 4098U, 9000U}) {
    for (const int old_errno : {0, EINTR}) {
      const std::string text = text_of(length);
      Buffer buffer;
      errno = old_errno;
      const int result = buffer.set("%s", text.c_str());
      const int error = errno;

      EXPECT_EQ(static_cast<int>(length), result);
      EXPECT_EQ(old_errno, error) << length;
    }
  }
}

TEST(snprintf_t, formats_the_text_of_the_current_errno)
{
  Buffer buffer;
  Open_Buffer<16> growing;
  Open_Buffer<24> doubled; // the text is one longer than its room
  errno = ENOENT;
  set_through_list(buffer, "%m");
  set_through_list(growing, "%m");
  set_through_list(doubled, "%m");

  EXPECT_STREQ("No such file or directory", buffer.c_str());
  EXPECT_STREQ("No such file or directory", growing.c_str());
  EXPECT_STREQ("No such file or directory", doubled.c_str());
}

// %m needs the errno of the caller, which therefore cannot show an error of the formatting itself.
TEST(snprintf_t, returns_a_formatting_error_beside_the_text_of_the_same_errno)
{
  Open_Buffer<8> buffer;
  errno = EILSEQ;

  const int result = set_through_list(buffer, "%m %ls", UNFORMATTABLE);
  const int error = errno;

  EXPECT_EQ(-1, result);
  EXPECT_EQ(EILSEQ, error);
  EXPECT_TRUE(buffer.is_in_place());
}

TEST(snprintf_t, passes_on_whatever_negative_value_the_c_library_gives)
{
  Open_Buffer<8> buffer;

  const Failing_Format failing;
  const int result = set_through_list(buffer, "%d", 1);
  const int error = errno;

  EXPECT_EQ(-2, result);
  EXPECT_EQ(EOVERFLOW, error);
  EXPECT_TRUE(buffer.is_in_place());
}

TEST(snprintf_t, cannot_be_copied)
{
  EXPECT_FALSE((std::is_copy_constructible<snprintf_t<4096, char>>::value));
  EXPECT_FALSE((std::is_copy_assignable<snprintf_t<4096, char>>::value));
  EXPECT_FALSE((std::is_polymorphic<snprintf_t<4096, char>>::value));
}

TEST(snprintf_t, keeps_its_members_in_order)
{
  const Buffer buffer;
  const auto offset = [&](const void* p) { return static_cast<const char*>(p) - buffer.buf_; };

  EXPECT_EQ(4096, offset(&buffer.len_));
  EXPECT_LT(offset(&buffer.len_), offset(&buffer.ptr_));
  EXPECT_LT(offset(&buffer.ptr_), offset(&buffer.size_));
}
