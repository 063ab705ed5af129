#pragma once

#include <string>
#include <string_view>

#include "platform/text/text.h"

namespace kestrin {

/// The colours of the status line, by what they say.
enum class StatusColor {
  primary,  ///< normal states
  red,      ///< failures, and the recording state
  orange,   ///< waiting during start-up, warnings
  blue,     ///< processing
};

inline std::string_view statusColorName(StatusColor color) {
  switch (color) {
    case StatusColor::primary:
      return "primary";
    case StatusColor::red:
      return "red";
    case StatusColor::orange:
      return "orange";
    case StatusColor::blue:
      return "blue";
  }
  return "primary";
}

struct StatusLine {
  std::string text;
  StatusColor color = StatusColor::primary;
  bool operator==(const StatusLine&) const = default;
};

/// Words on screen that say fn name the key in use; they stand as written where the key is fn.
inline std::string nameHoldKey(std::string words, const std::string& holdKey) {
  if (text::lower(holdKey) == "fn") return words;
  return text::replaceAll(text::replaceAll(std::move(words), "fn 🌐", holdKey), "fn", holdKey);
}

inline std::string countedStreams(int count) {
  return std::to_string(count) + " stream" + (count == 1 ? "" : "s");
}

}  // namespace kestrin
