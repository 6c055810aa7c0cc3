#include "ctl/answer.h"

#include "check/characters.h"

#include <cstddef>

static const Json EMPTY_LIST = Json::array();

void Reader::complain(const char* name, const char* type)
{
  if (problem_.empty())
    problem_ = std::string("the member '") + name + "' is missing or is no " + type;
}

const Json* Reader::find(const Json& object, const char* name, const char* type, bool (Json::*is_type)() const noexcept)
{
  const auto at = object.find(name); // the end for what is no object
  if (at != object.end() && ((*at).*is_type)())
    return &*at;
  complain(name, type);
  return nullptr;
}

std::string Reader::text(const Json& object, const char* name)
{
  const Json* const value = find(object, name, "text", &Json::is_string);
  return value ? *value->get_ptr<const std::string*>() : "";
}

// A double outside of this range does not fit into the type of the result.
static bool is_in_range(double value)
{
  return value > -9e18 && value < 9e18;
}

long long Reader::number(const Json& object, const char* name)
{
  const Json* const value = find(object, name, "number", &Json::is_number);
  if (!value)
    return 0;
  if (value->is_number_integer())
    return value->get<long long>();
  if (is_in_range(value->get<double>()))
    return static_cast<long long>(value->get<double>());
  complain(name, "number of this size");
  return 0;
}

bool Reader::flag(const Json& object, const char* name)
{
  const Json* const value = find(object, name, "truth value", &Json::is_boolean);
  return value && value->get<bool>();
}

const Json& Reader::list(const Json& object, const char* name)
{
  const Json* const value = find(object, name, "list", &Json::is_array);
  if (!value)
    return EMPTY_LIST;
  for (const Json& element : *value)
    if (!element.is_object()) {
      complain(name, "list of objects");
      return EMPTY_LIST;
    }
  return *value;
}

std::string Reader::names(const Json& object, const char* name)
{
  const Json* const value = find(object, name, "list", &Json::is_array);
  if (!value)
    return "";
  std::string names;
  for (const Json& element : *value) {
    if (!element.is_string()) {
      complain(name, "list of texts");
      return "";
    }
    names += (names.empty() ? "" : ", ") + *element.get_ptr<const std::string*>();
  }
  return names;
}

std::string parse_answer(const std::string& line, Answer& answer)
{
  answer.json = Json::parse(line, nullptr, false);
  if (answer.json.is_discarded())
    return "it is no JSON";
  if (!answer.json.is_object())
    return "it is no JSON object";

  Reader reader;
  answer.is_done = reader.flag(answer.json, "ok");
  if (reader.problem().empty() && !answer.is_done)
    answer.error = reader.text(answer.json, "error");
  return reader.problem();
}

// A valid line has these bytes between the tokens, where they mean nothing, and within texts, where an escape means the
// same. Control characters of two bytes, which begin with C2, are there within texts only.
std::string make_harmless(const std::string& line)
{
  std::string result;
  for (std::size_t at = 0; at < line.size(); ++at) {
    const auto byte = static_cast<unsigned char>(line[at]);
    const auto next = static_cast<unsigned char>(at + 1 < line.size() ? line[at + 1] : 0);
    if (byte == 0x7f)
      result += "\\u007f";
    else if (byte == 0xc2 && next >= 0x80 && next < 0xa0)
      result += "\\u00" + escape_bytes(std::string(1, line[++at])).substr(2);
    else
      result += is_control_byte(byte) ? ' ' : line[at];
  }
  return result;
}

std::string make_line(const Json& object)
{
  return make_harmless(object.dump(-1, ' ', false, Json::error_handler_t::replace)) + '\n';
}
