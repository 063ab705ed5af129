#pragma once

#include <string>
#include <vector>

namespace kestrin {

/// What a piece of the terminal's text is; the view that draws it has a colour for each.
enum class TerminalColor { normal, heading, command, muted, success, warning, info, error, prompt };

struct TerminalSpan {
  std::string text;
  TerminalColor color = TerminalColor::normal;
};

struct TerminalHelpEntry {
  const char* command;
  const char* description;
};
struct TerminalHelpSection {
  const char* title;
  std::vector<TerminalHelpEntry> entries;
};
const std::vector<TerminalHelpSection>& terminalHelp();

/// The command words, in the order of the help.
const std::vector<std::string>& terminalCommands();

}  // namespace kestrin
