#include "usermodel/preferences/preference_pages.h"

namespace kestrin {

const char* pageTitle(PreferencePage page) {
  switch (page) {
    case PreferencePage::general:
      return "General";
    case PreferencePage::voiceAndAudio:
      return "Voice & Audio";
    case PreferencePage::appearance:
      return "Appearance";
    case PreferencePage::privacy:
      return "Privacy";
    case PreferencePage::integrations:
      return "Integrations";
    case PreferencePage::advanced:
      return "Advanced";
    case PreferencePage::none:
      break;
  }
  return "";
}

const std::vector<std::string>& pageSections(PreferencePage page) {
  static const std::vector<std::vector<std::string>> sections{
      {"App Behavior", "Keyboard Shortcuts", "Language & Region"},
      {"Voice Input", "Voice Output", "Transcription"},
      {"Theme", "Window", "Text & Display"},
      {"Data & Privacy", "Storage", "Permissions"},
      {"Connected Accounts", "API Configuration", "Sync"},
      {"Processing", "Developer", "About"},
      {}};
  return sections[static_cast<size_t>(page)];
}

}  // namespace kestrin
