#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "dictation/action_executor.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

/// Spoken names that are nobody's desktop entry, and what stands for them on the usual desktops.
const std::map<std::string, std::vector<std::string>>& appNameMappings() {
  static const std::map<std::string, std::vector<std::string>> mappings{
      {"browser", {"firefox", "firefox-esr", "google-chrome", "chromium"}},
      {"web browser", {"firefox", "firefox-esr", "google-chrome", "chromium"}},
      {"firefox", {"firefox", "firefox-esr"}},
      {"chrome", {"google-chrome", "chromium"}},
      {"google chrome", {"google-chrome", "chromium"}},
      {"vs code", {"code", "code-oss", "codium"}},
      {"vscode", {"code", "code-oss", "codium"}},
      {"visual studio code", {"code", "code-oss", "codium"}},
      {"terminal",
       {"org.gnome.terminal", "org.gnome.console", "org.kde.konsole", "xfce4-terminal", "xterm"}},
      {"files", {"org.gnome.nautilus", "org.kde.dolphin", "thunar", "nemo", "pcmanfm"}},
      {"finder", {"org.gnome.nautilus", "org.kde.dolphin", "thunar", "nemo", "pcmanfm"}},
      {"file manager", {"org.gnome.nautilus", "org.kde.dolphin", "thunar", "nemo", "pcmanfm"}},
      {"mail", {"thunderbird", "org.gnome.evolution", "org.gnome.geary", "org.kde.kmail2"}},
      {"email", {"thunderbird", "org.gnome.evolution", "org.gnome.geary", "org.kde.kmail2"}},
      {"calculator", {"org.gnome.calculator", "org.kde.kcalc", "galculator"}},
      {"calendar", {"org.gnome.calendar", "org.kde.korganizer"}},
      {"notes", {"org.gnome.notes", "gnote", "joplin"}},
      {"text editor", {"org.gnome.texteditor", "org.gnome.gedit", "org.kde.kate", "mousepad"}},
      {"settings", {"org.gnome.settings", "systemsettings", "xfce-settings-manager"}},
      {"system settings", {"org.gnome.settings", "systemsettings", "xfce-settings-manager"}},
      {"music", {"rhythmbox", "org.gnome.music", "spotify"}},
      {"photos", {"org.gnome.loupe", "org.gnome.eog", "org.kde.gwenview"}},
  };
  return mappings;
}

constexpr std::array<std::pair<std::string_view, std::string_view>, 19> keyNames{{
    {"return", "Return"},
    {"enter", "Return"},
    {"escape", "Escape"},
    {"esc", "Escape"},
    {"tab", "Tab"},
    {"space", "space"},
    {"delete", "BackSpace"},
    {"backspace", "BackSpace"},
    {"forward_delete", "Delete"},
    {"up", "Up"},
    {"down", "Down"},
    {"left", "Left"},
    {"right", "Right"},
    {"home", "Home"},
    {"end", "End"},
    {"page_up", "Page_Up"},
    {"pageup", "Page_Up"},
    {"page_down", "Page_Down"},
    {"pagedown", "Page_Down"},
}};

/// The command key of other systems is Control here.
constexpr std::array<std::pair<std::string_view, std::string_view>, 9> modifierNames{{
    {"command", "control"},
    {"cmd", "control"},
    {"control", "control"},
    {"ctrl", "control"},
    {"shift", "shift"},
    {"option", "alt"},
    {"alt", "alt"},
    {"super", "super"},
    {"meta", "super"},
}};

template <class Table>
std::string lookUp(const Table& table, const std::string& word) {
  for (const auto& [key, value] : table) {
    if (key == word) return std::string(value);
  }
  return {};
}

}  // namespace

std::vector<std::string> applicationCandidates(const std::string& name) {
  std::vector<std::string> candidates;
  const auto& mappings = appNameMappings();
  if (const auto found = mappings.find(text::lower(name)); found != mappings.end()) {
    candidates = found->second;
  }
  candidates.push_back(name);
  return candidates;
}

std::string keyNameFor(const std::string& key) {
  const auto lower = text::lower(key);
  auto known = lookUp(keyNames, lower);
  if (!known.empty()) return known;
  // Function keys and single letters: the port's names are "F5" and "v".
  return lower.size() > 1 && lower.front() == 'f' ? text::upper(lower) : lower;
}

std::vector<std::string> modifierNamesFor(const std::vector<std::string>& modifiers) {
  std::vector<std::string> names;
  for (const auto& modifier : modifiers) {
    const auto name = lookUp(modifierNames, text::lower(modifier));
    if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
      names.push_back(name);
    }
  }
  return names;
}

std::string_view safetyTierText(SafetyTier tier) {
  return tier == SafetyTier::elevated ? "elevated" : "safe";
}

SafetyTier safetyTierFromText(std::string_view text) {
  return text == "elevated" ? SafetyTier::elevated : SafetyTier::safe;
}

}  // namespace kestrin
