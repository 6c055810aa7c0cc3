#include "companions/control/record_capture.h"

#include <ace/ACE.h>
#include <ace/Log_Record.h>

#include <algorithm>
#include <cstring>
#include <string_view>

static bool begins_with(std::string_view text, std::string_view begin)
{
  return text.substr(0, begin.size()) == begin;
}

void Record_Capture::install()
{
  if (is_installed_)
    return; // it may still be behind another callback

  main_log_ = ACE_LOG_MSG;
  former_ = main_log_->msg_callback(this);
  main_log_->set_flags(ACE_Log_Msg::MSG_CALLBACK);
  is_installed_ = true;
}

void Record_Capture::remove()
{
  if (!is_installed_ || ACE_LOG_MSG->msg_callback() != this)
    return;
  (void)ACE_LOG_MSG->msg_callback(former_); // it returns this object
  is_installed_ = false;
}

void Record_Capture::begin()
{
  events_end_ = 0;
  name_[0] = reason_[0] = general_[0] = '\0';
  was_debug_on_ = ACE::debug();
  former_mask_ = main_log_->priority_mask(ACE_Log_Msg::THREAD);
  is_on_ = true;
  (void)main_log_->priority_mask(former_mask_ | LM_DEBUG | LM_INFO | LM_WARNING | LM_ERROR, ACE_Log_Msg::THREAD);
  ACE::debug(true);
}

void Record_Capture::end()
{
  // The signal that switches the debug records has been meant for the state before the capture.
  ACE::debug(was_debug_on_ == ACE::debug());
  (void)main_log_->priority_mask(former_mask_, ACE_Log_Msg::THREAD);
  is_on_ = false;
}

// ---- The texts of the framework

// The records that the framework writes while it loads services, and only when its debug records are on.
static bool is_of_loader(std::string_view text)
{
  if (begins_with(text, "ACE ("))
    return text.find(") [error ") == text.npos && text.find(") ERROR: ") == text.npos;

  static constexpr std::string_view others[] = {"DLL::symbol failed ", "beginning reconfiguration at ",
                                                "did suspend on ", "did resume on "};
  return std::any_of(std::begin(others), std::end(others),
                     [text](std::string_view begin) { return begins_with(text, begin); });
}

// The text between the first `begin` and the next `end`. Null if they do not occur.
static std::string_view between(std::string_view text, std::string_view begin, std::string_view end)
{
  const std::size_t at = text.find(begin);
  if (at == text.npos)
    return {};

  text.remove_prefix(at + begin.size());
  const std::size_t size = text.find(end);
  return size == text.npos ? std::string_view() : text.substr(0, size);
}

// The rest of the line behind the first `begin`. Null if this does not occur.
static std::string_view behind(std::string_view text, std::string_view begin)
{
  const std::size_t at = text.find(begin);
  if (at == text.npos)
    return {};

  text.remove_prefix(at + begin.size());
  return text.substr(0, text.find('\n'));
}

static void copy(std::string_view text, char* to, std::size_t size)
{
  const std::size_t length = std::min(text.size(), size - 1);
  std::copy_n(text.begin(), length, to);
  to[length] = '\0';
}

// ---- The capture

void Record_Capture::note_event(char kind, const char* name, std::size_t size)
{
  const bool has_reason = kind == '!';
  const std::size_t reason_size = has_reason ? std::strlen(reason_) + 1 : 0;
  std::size_t end = events_end_;
  if (size == 0 || end + size + 2 + reason_size > sizeof events_)
    return;

  events_[end++] = kind;
  end = static_cast<std::size_t>(std::copy_n(name, size, events_ + end) - events_);
  events_[end++] = '\n';
  if (has_reason) {
    end = static_cast<std::size_t>(std::copy_n(reason_, reason_size - 1, events_ + end) - events_);
    events_[end++] = '\n';
  }
  events_end_ = end;
}

void Record_Capture::note_failure(const char* text, bool is_certain)
{
  if (name_[0] == '\0') {
    if (general_[0] == '\0')
      copy(text, general_, sizeof general_);
  } else if (!is_certain_ && (is_certain || reason_[0] == '\0')) {
    copy(text, reason_, sizeof reason_);
    is_certain_ = is_certain;
  }
}

void Record_Capture::note(const ACE_Log_Record& record)
{
  const std::string_view text = record.msg_data();
  if (text.find("work_pending_i: Interrupted system call") != text.npos)
    return; // a reactor of the kind dev_poll writes it for each signal that interrupts its wait
  const auto fail = [this](std::string_view reason, bool is_certain) {
    char line[REASON_SIZE];
    copy(reason, line, sizeof line);
    note_failure(line, is_certain);
  };

  if (begins_with(text, "beginning reconfiguration at ")) {
    events_end_ = 0; // an earlier one is not asked for
    name_[0] = general_[0] = '\0';
  } else if (const std::string_view name = between(text, "name=", " - looking up in the repo"); name.data()) {
    copy(name, name_, sizeof name_);
    reason_[0] = '\0';
    is_certain_ = false;
  } else if (text.find(") SR::insert - ") != text.npos) {
    const std::string_view inserted = between(text, "name=", " (");
    note_event('+', inserted.data(), inserted.size());
  } else if (text.find(") ST::fini - destroying ") != text.npos) {
    const std::string_view gone = between(text, "name=", ", dll=");
    note_event('-', gone.data(), gone.size());
  } else if (text.find(") Dynamic_Node::apply - Did dynamic on ") != text.npos) {
    if (reason_[0] != '\0')
      note_event('!', name_, std::strlen(name_));
    name_[0] = reason_[0] = '\0';
  } else if (const std::string_view library = behind(text, ") LN::open_dll - Failed to open "); library.data())
    fail(library.substr(std::min(library.find(": ") + 2, library.size())), true);
  else if (const std::string_view symbol = behind(text, "DLL::symbol failed for function "); symbol.data())
    fail(symbol.substr(std::min(symbol.find(": ") + 2, symbol.size())), true);
  else if (text.find(") SG::initialize_i - ") != text.npos && text.find(" - remove failed") != text.npos)
    fail("its init failed", false);
  else if (record.type() >= static_cast<ACE_UINT32>(LM_ERROR) && !is_of_loader(text))
    fail(text.substr(0, text.find('\n')), true);
  else if (const std::string_view file = behind(text, "): "); begins_with(text, "ACE (") && file.data())
    fail(file, false); // a file that cannot be opened
}

bool Record_Capture::is_kept_from_log(const ACE_Log_Record& record) const
{
  const u_long operators = main_log_->priority_mask(ACE_Log_Msg::PROCESS) | former_mask_;
  return (record.type() & operators) == 0 || (!was_debug_on_ && is_of_loader(record.msg_data()));
}

void Record_Capture::log(ACE_Log_Record& record)
{
  if (is_on_) {
    note(record);
    if (is_kept_from_log(record)) {
      (void)record.msg_data(""); // fits, so that no memory is taken
      return;
    }
  }
  if (former_)
    former_->log(record);
}

// ---- The result

std::set<std::string> Record_Capture::names(char kind) const
{
  std::set<std::string> found;
  std::string_view rest(events_, events_end_);
  while (!rest.empty()) {
    const char present = rest[0];
    const std::size_t line = rest.find('\n');
    const std::string name(rest.substr(1, line - 1));
    rest.remove_prefix(line + 1);
    if (present == '!')
      rest.remove_prefix(rest.find('\n') + 1);
    if (present == kind)
      found.insert(name);
  }
  return found;
}

std::string Record_Capture::reason(const std::string& name) const
{
  const std::string_view all(events_, events_end_);
  const std::string mark = "\n!" + name + '\n';
  std::size_t at = begins_with(all, mark.substr(1)) ? mark.size() - 1 : all.npos;
  if (const std::size_t last = all.rfind(mark); last != all.npos)
    at = last + mark.size();
  return at == all.npos ? std::string() : std::string(all.substr(at, all.find('\n', at) - at));
}
