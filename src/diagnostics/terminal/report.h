#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "diagnostics/terminal/terminal_text.h"
#include "platform/json/json.h"

namespace kestrin {

/// The form that all reports of the terminal share. Gathers text; `spans` has it.
class Report {
 public:
  /// The title with the flags in effect behind it, and a rule.
  explicit Report(const std::string& title, const std::vector<std::string>& flags = {});
  /// Without a title: what comes later belongs to an earlier one.
  Report() = default;

  Report& add(const std::string& text, TerminalColor color = TerminalColor::normal);
  Report& line(const std::string& text = {}, TerminalColor color = TerminalColor::normal) {
    return add(text + "\n", color);
  }
  Report& rule();
  /// "📈 Usage Metrics"
  Report& section(const std::string& title);
  /// A label, blanks up to a fixed column, and a value.
  Report& row(const std::string& label, const std::string& value,
              TerminalColor color = TerminalColor::normal);
  Report& footer(const std::string& text) { return line(text, TerminalColor::muted); }
  Report& failure(const std::string& text) { return line(text, TerminalColor::error); }

  const std::vector<TerminalSpan>& spans() const { return spans_; }

 private:
  std::vector<TerminalSpan> spans_;
};

/// An array of objects, one key a line.
std::string terminalJson(const std::vector<std::vector<std::pair<std::string, Json>>>& objects);

/// "HH:mm:ss" of an ISO 8601 time; the text itself when it is none.
std::string terminalTime(const std::string& iso);

}  // namespace kestrin
