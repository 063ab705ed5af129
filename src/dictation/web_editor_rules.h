#pragma once

#include <array>
#include <string>
#include <string_view>

#include "platform/text/text.h"

namespace kestrin {

// Targets that do not take text through accessibility, so that a dictation is pasted into them in
// one piece at its end. Decided by what real programs did (docs/targets.md has the measurements);
// looked at in this order: role, toolkit, browser and editor ids, their names, messenger ids, their
// names.

/// The element itself: the whole page or a container in it has the focus, and neither is editable
/// text on the bus. Chromium and Firefox report the body of an editable page so.
inline constexpr std::array<std::string_view, 2> webEditorRoles{"AXWebArea", "AXGroup"};

/// Chromium 156 (also Electron): no editable-text interface at all. Firefox 153 ("Gecko"): the
/// interface says true and changes nothing. WebKitGTK: content lives in a web process and was not
/// measured; an engine of the same kind is not trusted.
inline constexpr std::array<std::string_view, 3> webEditorToolkits{"Chromium", "Gecko",
                                                                   "WebKitGTK"};

/// Substrings of desktop entry ids, for programs that hide their toolkit: Electron and Chromium
/// expose nothing unless accessibility was on when they started, so there is no toolkit name to go
/// by. All of them embed one of the two engines above.
inline constexpr std::array<std::string_view, 17> webEditorIds{
    "chrome", "chromium", "firefox",        "librewolf", "brave", "vivaldi",
    "opera",  "msedge",   "microsoft-edge", "cursor",    "vscod", "codium",
    "slack",  "discord",  "notion",         "obsidian",  "figma"};

/// Ids that are too short for a substring test ("code" is part of many words).
inline constexpr std::array<std::string_view, 4> webEditorExactIds{
    "code", "code-oss", "code-insiders", "com.visualstudio.code"};

inline constexpr std::array<std::string_view, 3> webEditorNames{"cursor", "visual studio", "slack"};

/// Messengers: all Electron, or (Telegram) a text field of their own drawing.
inline constexpr std::array<std::string_view, 6> messengerIds{
    "whatsapp", "telegram", "signal", "viber", "element-desktop", "skype"};
inline constexpr std::array<std::string_view, 3> messengerNames{"whatsapp", "telegram", "signal"};

/// Where the text is to go, as far as it is known; empty where it is not.
struct TargetFacts {
  std::string role;       ///< the product's word
  std::string toolkit;    ///< as on the accessibility bus
  std::string desktopId;  ///< any case
  std::string appName;    ///< any case
};

inline bool isLikelyWebEditor(const TargetFacts& target) {
  const auto equalsAny = [](std::string_view word, const auto& list) {
    for (auto entry : list) {
      if (word == entry) return true;
    }
    return false;
  };
  const auto id = text::lower(target.desktopId);
  const auto name = text::lower(target.appName);
  return equalsAny(target.role, webEditorRoles) || equalsAny(target.toolkit, webEditorToolkits) ||
         text::containsAny(id, webEditorIds) || equalsAny(id, webEditorExactIds) ||
         text::containsAny(name, webEditorNames) || text::containsAny(id, messengerIds) ||
         text::containsAny(name, messengerNames);
}

}  // namespace kestrin
