#pragma once

#include <span>
#include <string>

namespace kestrin {

/// A mode or a Live Assist use case as its card introduces it.
struct ModeCard {
  const char* id;
  const char* name;
  const char* icon;  ///< a symbol's name
  const char* description;
};

/// In the order of the page. A mode without a card ("ide_assist") cannot be edited.
std::span<const ModeCard> voiceModeCards();
std::span<const ModeCard> liveAssistCards();

/// What the test button of a mode sends.
std::string modeSample(const std::string& mode);

}  // namespace kestrin
