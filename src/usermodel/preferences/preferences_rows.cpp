#include <algorithm>

#include "platform/dates/dates.h"
#include "usermodel/preferences/preferences_view.h"

namespace kestrin {
namespace {

PreferenceRow valueRow(const char* id, const char* label, std::string value) {
  return {.id = id, .label = label, .value = std::move(value)};
}

PreferenceRow buttonRow(const char* id, const char* label, PreferenceAction action,
                        const char* button, std::string value = {}) {
  return {.id = id, .label = label, .action = action, .button = button, .value = std::move(value)};
}

std::string countOf(int64_t count, const char* unit) {
  return std::to_string(count) + " " + unit + (count == 1 ? "" : "s") + " ago";
}

std::string connected(bool is) { return is ? "Connected" : "Not connected"; }

}  // namespace

std::vector<PreferenceSection> PreferencesView::sections(PreferencePage page) const {
  std::vector<PreferenceSection> out;
  for (const std::string& header : pageSections(page)) {
    PreferenceSection section{header, {}};
    for (const Preference& each : preferences()) {
      if (each.page == page && header == each.section) section.rows.push_back(settingRow(each));
    }
    auto more = fixedRows(header);
    // The keys in use are read before one is changed.
    const auto at = header == "Keyboard Shortcuts" ? section.rows.begin() : section.rows.end();
    section.rows.insert(at, more.begin(), more.end());
    out.push_back(std::move(section));
  }
  return out;
}

PreferenceRow PreferencesView::settingRow(const Preference& preference) const {
  PreferenceRow row{.id = preference.key, .label = preference.label, .preference = &preference};
  switch (preference.control) {
    case PreferenceControl::toggle:
      row.on = settings_.boolean(preference.key, preference.fallback.asBool().value_or(false));
      if (row.id == "pref_launchAtLogin") row.on = launchAtLoginShown_.value_or(row.on);
      break;
    case PreferenceControl::slider:
      row.number = settings_.number(preference.key, preference.fallback.asNumber().value_or(0));
      row.value = preference.shown(row.number);
      break;
    case PreferenceControl::segmented: {
      row.choices = preference.choices;
      const auto stored = settings_.get(preference.key).value_or(preference.fallback);
      const auto index = stored.asInt().value_or(0);
      row.selected = index >= 0 && size_t(index) < row.choices.size() ? size_t(index) : 0;
      break;
    }
    case PreferenceControl::dropdown: {
      row.choices = choicesOf(preference);
      row.value = storedText(preference);
      const auto at = std::find(row.choices.begin(), row.choices.end(), row.value);
      // A device that has gone shows the first item; what is stored stays.
      row.selected = at == row.choices.end() ? 0 : size_t(at - row.choices.begin());
      if (!row.choices.empty()) row.value = row.choices[row.selected];
      break;
    }
    case PreferenceControl::textField:
      row.value = row.id == GeminiKeyManager::settingKey ? geminiKey_ : storedText(preference);
      break;
  }
  return row;
}

std::string PreferencesView::storedText(const Preference& preference) const {
  if (std::string_view(preference.key) == "pref_holdKey") {
    return settings_.string(preference.key, services_.holdKeyName);
  }
  return settings_.string(preference.key, preference.fallback.asString().value_or(""));
}

std::vector<std::string> PreferencesView::choicesOf(const Preference& preference) const {
  auto choices = preference.choices;
  const auto known = machineChoices_.find(preference.key);
  if (known != machineChoices_.end()) {
    choices.insert(choices.end(), known->second.begin(), known->second.end());
  }
  return choices;
}

std::vector<PreferenceRow> PreferencesView::fixedRows(const std::string& header) const {
  if (header == "Keyboard Shortcuts") {
    return {valueRow("activate", "Activate voice input", services_.holdKeyName + " (Hold)"),
            valueRow("toggle", "Toggle recording", "Ctrl+Shift+R"),
            valueRow("show", "Show/Hide window", "Ctrl+Shift+L")};
  }
  if (header == "Voice Output") {
    return {buttonRow("testVoice", "Test voice", PreferenceAction::testVoice, "Play Sample")};
  }
  if (header == "Data & Privacy") {
    return {
        buttonRow("clearHistory", "Clear history", PreferenceAction::clearHistory, "Clear All")};
  }
  if (header == "Storage") {
    return {valueRow("historyStorage", "History storage", historySize_),
            valueRow("cacheStorage", "Cache storage", cacheSize_),
            buttonRow("clearCache", "Clear cache", PreferenceAction::clearCache, "Clear Cache")};
  }
  if (header == "Permissions") {
    return {valueRow("microphone", "Microphone", permissions_.microphone),
            valueRow("screenRecording", "Screen recording", permissions_.screenRecording),
            valueRow("accessibility", "Accessibility", permissions_.accessibility),
            buttonRow("managePermissions", "Manage permissions",
                      PreferenceAction::managePermissions, "Open Settings")};
  }
  if (header == "Connected Accounts") {
    return {
        buttonRow("google", "Google", PreferenceAction::manageAccount, "Manage", googleAccount_),
        valueRow("gmail", "Gmail", connected(settings_.boolean("hasGmailAccess"))),
        valueRow("calendar", "Calendar", connected(settings_.boolean("hasCalendarAccess")))};
  }
  if (header == "Sync") {
    return {valueRow("lastSynced", "Last synced", lastSynced()),
            buttonRow("syncNow", "Sync now", PreferenceAction::syncNow, "Sync")};
  }
  if (header == "Developer") {
    return {buttonRow("exportLogs", "Export debug logs", PreferenceAction::exportLogs, "Export"),
            buttonRow("resetAll", "Reset to defaults", PreferenceAction::resetAll, "Reset All")};
  }
  if (header == "About") {
    return {
        valueRow("version", "Version", applicationVersion),
        buttonRow("updates", "Check for updates", PreferenceAction::checkForUpdates, "Check Now")};
  }
  return {};
}

std::string PreferencesView::lastSynced() const {
  if (syncing_) return "Syncing...";
  const auto at = dates::parseIso8601(settings_.string("lastSyncTime"));
  if (!at) return "Never";
  using namespace std::chrono;
  const auto seconds =
      duration_cast<std::chrono::seconds>(dispatch_.clock().wallNow() - *at).count();
  if (seconds < 60) return "Just now";
  if (seconds < 3600) return countOf(seconds / 60, "minute");
  if (seconds < 86400) return countOf(seconds / 3600, "hour");
  return countOf(seconds / 86400, "day");
}

}  // namespace kestrin
