#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "dictation/audio_player_service.h"
#include "identity/device_id_manager.h"
#include "identity/gemini_key_manager.h"
#include "platform/lifetime.h"
#include "platform/platform.h"
#include "services/local/endpoints.h"
#include "usermodel/preferences/main_window_effects.h"
#include "usermodel/preferences/preference_changes.h"
#include "usermodel/preferences/preference_pages.h"
#include "usermodel/preferences/system_status.h"
#include "usermodel/preferences/update_check.h"
#include "usermodel/preferences/voice_test.h"

namespace kestrin {

/// What the settings window needs of the rest.
struct PreferencesServices {
  Platform& platform;
  Logger& logger;
  PreferenceChanges& changes;
  GeminiKeyManager& geminiKey;
  DeviceIdManager& deviceId;
  AudioPlayerService& player;
  Endpoints endpoints;
  std::string holdKeyName;
  std::weak_ptr<MainWindowEffects> window;
  /// "Clear All" was confirmed: whatever else keeps what was said forgets it. Main queue.
  std::function<void()> forgetHistory;
  /// The dated file that this run logs to; for "Export debug logs".
  std::string logFile;
};

/// The settings window: six pages of rows over the table of settings, what each control does, and
/// the questions it asks. Main queue only; nothing here waits, what must wait is filled in later.
class PreferencesView {
 public:
  static constexpr std::chrono::milliseconds syncTakes{1500};

  explicit PreferencesView(PreferencesServices services);

  /// When the window opens: fills in what the machine and the services say.
  void loadSavedPreferences();

  PreferencePage page() const { return page_; }
  void selectPage(PreferencePage page);
  /// The page's sections with their rows as they stand now.
  std::vector<PreferenceSection> sections(PreferencePage page) const;

  /// Controls, by their key. A key of another kind of control does nothing.
  void setToggle(const std::string& key, bool on);
  void setSlider(const std::string& key, double value);
  void choose(const std::string& key, const std::string& title);
  void chooseSegment(const std::string& key, int index);
  /// With each change of the text and at the end of editing.
  void editText(const std::string& key, const std::string& text);
  void perform(PreferenceAction action);

  /// The question or notice that waits for an answer; null for none.
  const PreferenceDialog* dialog() const;
  /// Index of the button that was pressed.
  void answer(size_t button);

  /// After every change of what is shown.
  std::function<void()> onChange;

 private:
  struct Asked {
    PreferenceDialog dialog;
    std::function<void(size_t)> answered;
  };

  PreferenceRow settingRow(const Preference& preference) const;
  std::vector<std::string> choicesOf(const Preference& preference) const;
  std::vector<PreferenceRow> fixedRows(const std::string& header) const;
  std::string storedText(const Preference& preference) const;
  std::string lastSynced() const;

  void setLaunchAtLogin(bool on);
  void registerLogin(bool on);
  void saveGeminiKey(const std::string& text);
  void loadGeminiKey();
  void refreshStorage();
  void refreshStatus();
  void testVoice();
  void exportDebugLogs();
  void clearHistory();
  void clearCache();
  void emptyThenTell(const std::string& folder, PreferenceDialog notice);
  void syncNow();
  void checkForUpdates();
  void tellVersion(const std::optional<PublishedVersion>& published);
  void resetAll();
  void openAddress(const std::string& address);

  void ask(PreferenceDialog dialog, std::function<void(size_t)> answered = {});
  void changed();
  std::string historyFolder() const;
  std::string cacheFolder() const;

  PreferencesServices services_;
  Dispatch& dispatch_;
  SettingsStore& settings_;
  VoiceTest voice_;
  const std::shared_ptr<UpdateCheck> updates_;
  const std::shared_ptr<AccountStatus> account_;
  const QueueRef secretQueue_;  ///< the secret store keeps callers waiting
  const QueueRef loginQueue_;

  PreferencePage page_ = PreferencePage::general;
  std::deque<Asked> asked_;
  std::map<std::string, std::vector<std::string>> machineChoices_;
  std::string geminiKey_;
  bool geminiKeyEdited_ = false;
  /// The toggle shows this while it differs from what is stored: the desktop refused.
  std::optional<bool> launchAtLoginShown_;
  std::string historySize_, cacheSize_;
  PermissionStates permissions_;
  std::string googleAccount_ = "Not connected";
  bool syncing_ = false;
  TimerHandle syncTimer_;
  std::shared_ptr<std::atomic<uint64_t>> geminiEdits_ = std::make_shared<std::atomic<uint64_t>>(0);
  SubscriptionHandle changes_;
  Lifetime lifetime_;
};

}  // namespace kestrin
