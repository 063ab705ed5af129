#include "diagnostics/terminal/report.h"

#include "platform/dates/dates.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr int ruleLength = 53;
constexpr size_t valueColumn = 22;

}  // namespace

Report::Report(const std::string& title, const std::vector<std::string>& flags) {
  add(title, TerminalColor::heading);
  for (const auto& flag : flags) add(" " + flag, TerminalColor::muted);
  line();
  rule();
}

Report& Report::add(const std::string& text, TerminalColor color) {
  spans_.push_back({text, color});
  return *this;
}

Report& Report::rule() {
  std::string rule;
  for (int i = 0; i < ruleLength; ++i) rule += "─";
  return line(rule, TerminalColor::muted);
}

Report& Report::section(const std::string& title) {
  return line("\n" + title, TerminalColor::info);
}

Report& Report::row(const std::string& label, const std::string& value, TerminalColor color) {
  const size_t length = text::characterCount(label);
  const std::string blanks(length < valueColumn ? valueColumn - length : 1, ' ');
  return add("  " + label + blanks, TerminalColor::muted).line(value, color);
}

std::string terminalJson(const std::vector<std::vector<std::pair<std::string, Json>>>& objects) {
  std::string out = "[\n";
  for (size_t i = 0; i < objects.size(); ++i) {
    out += "  {\n";
    for (size_t j = 0; j < objects[i].size(); ++j) {
      const auto& [key, value] = objects[i][j];
      out += "    \"" + key + "\": " + value.dump() + (j + 1 < objects[i].size() ? ",\n" : "\n");
    }
    out += i + 1 < objects.size() ? "  },\n" : "  }\n";
  }
  return out + "]";
}

std::string terminalTime(const std::string& iso) {
  const auto date = dates::parseIso8601(iso);
  return date ? dates::format(*date, "HH:mm:ss") : iso;
}

}  // namespace kestrin
