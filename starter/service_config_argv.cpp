#include "starter/service_config_argv.h"

#include <ace/Malloc_Base.h>

#include <algorithm>
#include <cstring>

// Whether the framework's line would give the text back as it is. An empty one gets lost. A hash mark at the start of
// the line makes all of it a comment.
static bool is_plain(const char* text)
{
  return *text && !std::strpbrk(text, "#$\"'\\ \t\n\v\f\r");
}

void Service_Config_Argv::Free::operator()(const char** texts) const
{
  ACE_Allocator::instance()->free(texts);
}

// The memory comes from where the framework takes the pieces of its line from.
bool Service_Config_Argv::make_room()
{
  const std::size_t room = room_ == 0 ? 16 : 2 * room_;
  const char** const texts = static_cast<const char**>(ACE_Allocator::instance()->malloc(room * sizeof(const char*)));
  if (!texts)
    return false;

  std::copy_n(texts_.get(), count_, texts);
  texts_.reset(texts);
  room_ = room;
  return true;
}

bool Service_Config_Argv::keep(const char* text)
{
  if (count_ + 1 >= room_ && !make_room())
    return false;

  texts_[count_++] = text;
  texts_[count_] = nullptr;
  return true;
}

// What a later text does in the line may depend on the earlier ones, and change what becomes of them.
void Service_Config_Argv::begin_line()
{
  is_line_ = true;
  for (std::size_t i = 0; i < count_; ++i)
    is_whole_ = line_.add(texts_[i], false) == 0 && is_whole_;
  texts_.reset();
}

void Service_Config_Argv::append(const char* text, bool quote_arg)
{
  if (!is_line_) {
    if (is_plain(text)) {
      is_whole_ = keep(text) && is_whole_;
      return;
    }
    begin_line();
  }

  is_whole_ = line_.add(text, quote_arg) == 0 && is_whole_;
}

char** Service_Config_Argv::whole_argv()
{
  if (!is_whole_)
    return nullptr;

  // The framework reads its arguments and does not write to them.
  return is_line_ ? line_.argv() : const_cast<char**>(texts_.get());
}
