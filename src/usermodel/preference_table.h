#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/json/json.h"
#include "platform/result.h"

namespace kestrin {

enum class PreferenceType { boolean, integer, number, text, date, object };
enum class PreferenceControl { toggle, slider, dropdown, segmented, textField };
enum class PreferencePage {
  general,
  voiceAndAudio,
  appearance,
  privacy,
  integrations,
  advanced,
  none,  ///< on no page: set from a terminal
};

/// One setting that the user changes: everything there is to know about it. `fallback` is what the
/// settings window counts on; it never enters the store. Readers in other folders keep fall-backs
/// of their own, equal to it, since they may read before any window exists.
struct Preference {
  const char* key;
  PreferenceControl control;
  const char* label;
  PreferencePage page;
  const char* section;
  Json fallback;  ///< null: absent unless set
  /// Titles of a dropdown (stored as they stand) or a segmented control (stored as the index).
  std::vector<std::string> choices = {};
  /// The machine has further choices: devices, voices, keys.
  bool openChoices = false;
  double minimum = 0, maximum = 0;  ///< of a slider
  const char* suffix = "";          ///< behind a slider's number
  int decimals = 0;                 ///< of that number
  const char* placeholder = "";     ///< of a text field
  /// What reads it; empty: nothing but the window that shows it.
  const char* effect = "";

  PreferenceType type() const;
  /// A slider's number as it is shown: "80%", "1.0x", "4000 tokens".
  std::string shown(double value) const;
};

/// All of them, in the order in which the pages show them.
const std::vector<Preference>& preferences();
/// Null for a key that is none of them.
const Preference* findPreference(std::string_view key);

/// Keys that no page owns, with their types.
const std::map<std::string, PreferenceType, std::less<>>& otherSettings();

inline constexpr std::string_view preferencePrefix = "pref_";

/// `value` as it may be stored under the preference's key. Error (domain "Preferences"): wrong
/// type, out of range or no such choice, with what would be right.
Result<Json> checkedPreference(const Preference& preference, const Json& value);

/// What a person typed for any key of the store. A key that begins with "pref_" must be a known one
/// and its value a right one; a known other key must have the right type; any other key takes JSON,
/// and a text where it is none.
Result<Json> settingFromText(const std::string& key, const std::string& text);

}  // namespace kestrin
