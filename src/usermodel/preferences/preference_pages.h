#pragma once

#include <optional>
#include <string>
#include <vector>

#include "usermodel/preference_table.h"

namespace kestrin {

/// The window's pages in the order of its sidebar.
inline constexpr PreferencePage preferencePages[] = {
    PreferencePage::general, PreferencePage::voiceAndAudio, PreferencePage::appearance,
    PreferencePage::privacy, PreferencePage::integrations,  PreferencePage::advanced};
/// "Voice & Audio".
const char* pageTitle(PreferencePage page);
/// Its section headers, in order.
const std::vector<std::string>& pageSections(PreferencePage page);

/// What a button of the window does.
enum class PreferenceAction {
  testVoice,
  clearHistory,
  clearCache,
  managePermissions,
  manageAccount,
  syncNow,
  exportLogs,
  resetAll,
  checkForUpdates,
};

/// One line of a page, ready to be drawn.
struct PreferenceRow {
  std::string id;  ///< the setting's key, or a name of its own
  std::string label;
  /// Exactly one of the next three: a setting with its control, a button, or just a value.
  const Preference* preference = nullptr;
  std::optional<PreferenceAction> action;
  std::string button;  ///< title of the action's button
  std::string value;   ///< what is shown: a slider's number, a text, a state
  bool on = false;     ///< of a toggle
  double number = 0;   ///< of a slider
  std::vector<std::string> choices;
  size_t selected = 0;  ///< of a dropdown or segmented control
};

struct PreferenceSection {
  std::string header;
  std::vector<PreferenceRow> rows;
};

/// A question or a notice above the window.
struct PreferenceDialog {
  std::string title;
  std::string text;
  std::vector<std::string> buttons;
};

}  // namespace kestrin
