#include "diagnostics/terminal/parsed_flags.h"

#include <array>
#include <charconv>

namespace kestrin {
namespace {

struct Switch {
  const char* brief;
  const char* full;
  bool ParsedFlags::*field;
};
constexpr std::array switches{
    Switch{"-v", "--verbose", &ParsedFlags::verbose},
    Switch{"-j", "--json", &ParsedFlags::json},
    Switch{"-a", "--all", &ParsedFlags::all},
    Switch{"-e", "--export", &ParsedFlags::exporting},
    Switch{"-t", "--tail", &ParsedFlags::tail},
    Switch{"-f", "--follow", &ParsedFlags::follow},
    Switch{"-r", "--raw", &ParsedFlags::raw},
};

std::optional<int> wholeNumber(const std::string& word) {
  int value = 0;
  const auto read = std::from_chars(word.data(), word.data() + word.size(), value);
  if (read.ec != std::errc() || read.ptr != word.data() + word.size()) return std::nullopt;
  return value;
}

bool takeSwitch(const std::string& token, ParsedFlags& flags) {
  for (const Switch& each : switches) {
    if (token != each.brief && token != each.full) continue;
    flags.*each.field = true;
    return true;
  }
  return false;
}

}  // namespace

ParsedFlags parseFlags(const std::vector<std::string>& tokens) {
  ParsedFlags flags;
  for (size_t i = 0; i < tokens.size(); ++i) {
    const std::string& token = tokens[i];
    const bool hasNext = i + 1 < tokens.size();
    if (takeSwitch(token, flags)) continue;
    if (token == "-n" || token == "--limit") {
      if (const auto value = hasNext ? wholeNumber(tokens[i + 1]) : std::nullopt) {
        flags.limit = value;
        ++i;
      }
    } else if (token == "--filter") {
      if (hasNext) flags.filter = tokens[++i];
    } else if (!token.starts_with("-")) {
      flags.positionalArgs.push_back(token);
    }
  }
  return flags;
}

}  // namespace kestrin
