#include "check/report.h"

#include "check/characters.h"
#include "check/json_string.h"

std::string format_text(const Findings& findings)
{
  std::string text;
  for (const Finding& finding : findings) {
    text += finding.place.file.empty() ? "command line" : escape_controls(finding.place.file);
    if (finding.place.line > 0)
      text += ':' + std::to_string(finding.place.line);
    text += finding.is_error() ? ": " : ": warning: ";
    text += std::string(finding.kind_name()) + ": " + escape_controls(finding.message) + '\n';
  }
  return text;
}

std::string format_nothing(const Checked_Configuration& checked)
{
  return "starter-check: nothing to report (files: " + std::to_string(checked.files_read) +
         ", directives: " + std::to_string(checked.directives) + ", services: " + std::to_string(checked.services) +
         ")\n";
}

std::string format_json(const Findings& findings, const Checked_Configuration& checked)
{
  std::string text = "{\"findings\": [";
  const char* separator = "";
  for (const Finding& finding : findings) {
    text += separator;
    text += "\n  {\"kind\": " + json_string(finding.kind_name());
    text += std::string(", \"severity\": ") + (finding.is_error() ? "\"error\"" : "\"warning\"");
    text += ", \"file\": " + (finding.place.file.empty() ? "null" : json_string(finding.place.file));
    text += ", \"line\": " + (finding.place.line > 0 ? std::to_string(finding.place.line) : "null");
    text += ", \"message\": " + json_string(finding.message) + '}';
    separator = ",";
  }
  text += findings.empty() ? "]" : "\n]";
  text += ", \"checked\": {\"files\": " + std::to_string(checked.files_read);
  text += ", \"directives\": " + std::to_string(checked.directives);
  return text + ", \"services\": " + std::to_string(checked.services) + "}}\n";
}
