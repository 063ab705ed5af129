#include <array>
#include <memory>
#include <re2/re2.h>
#include <utility>
#include <vector>

#include "companion/agent/command_kinds.h"
#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

/// A command without parameters: the whole part must match, once words of degree are left out of
/// it. SOUND, LIGHT and MACHINE stand for what people call these.
struct FixedCommand {
  const char* pattern;
  const char* type;
};

constexpr std::array fixedCommands{
    FixedCommand{"(?:turn|bring|put) SOUND up|(?:turn|crank) up SOUND|(?:raise|increase) SOUND|"
                 "volume up|make (?:it|SOUND) louder|(?:SOUND )?louder",
                 "volume_up"},
    FixedCommand{"(?:turn|bring|put) SOUND down|turn down SOUND|(?:lower|decrease|reduce) SOUND|"
                 "volume down|make (?:it|SOUND) quieter|(?:SOUND )?quieter|not so loud",
                 "volume_down"},
    FixedCommand{"unmute|unmute (?:SOUND|MACHINE)|turn (?:back )?on SOUND|turn SOUND (?:back )?on|"
                 "sound (?:back )?on",
                 "unmute"},
    FixedCommand{"mute|mute (?:SOUND|MACHINE|everything)|turn off SOUND|turn SOUND off|sound off|"
                 "silence (?:SOUND|MACHINE)",
                 "mute"},
    FixedCommand{"(?:turn on|enable|activate|switch (?:back )?to|switch on|use|go) (?:the )?DARK|"
                 "turn (?:the )?DARK on|dark mode on|(?:turn off|disable) (?:the )?LIGHTMODE|"
                 "make (?:it|everything) dark",
                 "dark_mode_on"},
    FixedCommand{"(?:turn off|disable|deactivate|switch off) (?:the )?DARK|"
                 "turn (?:the )?DARK off|dark mode off|"
                 "(?:turn on|enable|switch (?:back )?to|use|go) (?:the )?LIGHTMODE|"
                 "make (?:it|everything) light",
                 "dark_mode_off"},
    FixedCommand{"(?:take|make|grab|capture) (?:a |the )?SHOT(?: of (?:this|the screen|my "
                 "screen|everything))?|SHOT|capture (?:the|my) screen|"
                 "take a (?:picture|photo) of (?:the|my) screen",
                 "screenshot"},
    FixedCommand{"(?:turn|bring) LIGHT up|(?:turn up|raise|increase) LIGHT|brightness up|"
                 "make (?:it|SCREEN) brighter|(?:SCREEN )?brighter",
                 "brightness_up"},
    FixedCommand{"(?:turn|bring) LIGHT down|(?:turn down|lower|decrease|reduce|dim) LIGHT|"
                 "brightness down|dim SCREEN|make (?:it|SCREEN) (?:darker|dimmer)|"
                 "(?:SCREEN )?(?:darker|dimmer)",
                 "brightness_down"},
    FixedCommand{"go to sleep|sleep now|suspend MACHINE|(?:put|send) MACHINE to sleep", "sleep"},
};

/// The pattern of a fixed command as the library reads it.
std::string expanded(std::string pattern) {
  for (const auto& [name, words] :
       {std::pair{"SOUND",
                  "(?:(?:the |my )?"
                  "(?:volume|sound|audio|music|speakers?)|it)"},
        std::pair{"LIGHTMODE", "light (?:mode|theme)"}, std::pair{"DARK", "dark (?:mode|theme)"},
        std::pair{"LIGHT",
                  "(?:(?:the |my )?(?:screen |display )?"
                  "brightness)"},
        std::pair{"SCREEN", "(?:the |my )?(?:screen|display)"},
        std::pair{"SHOT", "(?:screenshot|screen shot|screen capture)"},
        std::pair{"MACHINE",
                  "(?:the |my |this )?"
                  "(?:computer|laptop|machine|pc)"}}) {
    pattern = text::replaceAll(std::move(pattern), name, words);
  }
  return pattern;
}

}  // namespace

std::string fixedCommand(std::string plain) {
  static const RE2 degree(
      " ?\\b(?:just )?(?:(?:by )?a (?:little bit|little|bit|notch|touch|lot)|slightly|somewhat)\\b "
      "?");
  static const auto patterns = [] {
    std::vector<std::pair<std::unique_ptr<RE2>, std::string>> all;
    for (const FixedCommand& command : fixedCommands) {
      all.emplace_back(std::make_unique<RE2>(expanded(command.pattern)), command.type);
    }
    return all;
  }();
  RE2::GlobalReplace(&plain, degree, " ");
  plain = text::trim(plain);
  for (const auto& [pattern, type] : patterns) {
    if (RE2::FullMatch(plain, *pattern)) return type;
  }
  return {};
}

}  // namespace kestrin::agent
