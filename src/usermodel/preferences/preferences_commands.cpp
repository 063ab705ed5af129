#include "diagnostics/debug_report.h"
#include "platform/dates/dates.h"
#include "platform/dispatch/background.h"
#include "usermodel/preferences/folder_storage.h"
#include "usermodel/preferences/preferences_view.h"

namespace kestrin {
namespace {

constexpr const char* calculating = "Calculating...";

/// What the dropdowns of this machine offer besides their own titles.
using MachineChoices = std::map<std::string, std::vector<std::string>>;

std::vector<std::string> namesOf(const Result<std::vector<AudioDevice>>& devices) {
  std::vector<std::string> names;
  for (const AudioDevice& device : devices.value_or(std::vector<AudioDevice>{})) {
    names.push_back(device.name);
  }
  return names;
}

MachineChoices machineChoices(Platform& platform, VoiceTest voice) {
  return {{"pref_inputDevice", namesOf(platform.audio.inputDevices())},
          {"pref_outputDevice", namesOf(platform.audio.outputDevices())},
          {"pref_voiceStyle", voice.voiceNames()},
          {"pref_holdKey", platform.keyMonitor.availableKeys()}};
}

}  // namespace

void PreferencesView::perform(PreferenceAction action) {
  switch (action) {
    case PreferenceAction::testVoice:
      return testVoice();
    case PreferenceAction::clearHistory:
      return clearHistory();
    case PreferenceAction::clearCache:
      return clearCache();
    case PreferenceAction::managePermissions:
      return inBackground(
          dispatch_, dispatch_.globalQueue(), lifetime_,
          [&workspace = services_.platform.workspace] { return openSystemSettings(workspace); },
          [this](const Status& opened) {
            if (!opened) services_.logger.print("⚠️ " + opened.error().description);
          });
    case PreferenceAction::manageAccount:
      return services_.platform.notifications.post("NavigateToSettings",
                                                   Json::object({{"section", "integration"}}));
    case PreferenceAction::syncNow:
      return syncNow();
    case PreferenceAction::exportLogs:
      return exportDebugLogs();
    case PreferenceAction::resetAll:
      return resetAll();
    case PreferenceAction::checkForUpdates:
      return checkForUpdates();
  }
}

void PreferencesView::refreshStorage() {
  historySize_ = cacheSize_ = calculating;
  changed();
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_,
      [&files = services_.platform.files, history = historyFolder(), cache = cacheFolder()] {
        return std::pair(storageText(folderSize(files, history)),
                         storageText(folderSize(files, cache)));
      },
      [this](const std::pair<std::string, std::string>& sizes) {
        std::tie(historySize_, cacheSize_) = sizes;
        changed();
      });
}

void PreferencesView::refreshStatus() {
  auto& platform = services_.platform;
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_,
      [&platform, voice = voice_] {
        return std::pair(
            permissionStates(platform.audio, platform.workspace, platform.accessibility),
            machineChoices(platform, voice));
      },
      [this](const std::pair<PermissionStates, MachineChoices>& found) {
        std::tie(permissions_, machineChoices_) = found;
        changed();
      });
  const auto told = onMain<std::string>(dispatch_, lifetime_, [this](const std::string& state) {
    googleAccount_ = state;
    changed();
  });
  dispatch_.globalQueue()->post([account = account_, told] {
    account->ask([account, told](std::string state) { told(std::move(state)); });
  });
}

void PreferencesView::testVoice() {
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_,
      [voice = voice_, &settings = settings_] { return voice.speak(settings); },
      [this](Result<Bytes>& sound) {
        if (sound) return services_.player.play(std::move(*sound));
        services_.logger.print("⚠️ Test voice: " + sound.error().description);
      });
}

/// Onto the desktop, where people look for what they are to attach.
void PreferencesView::exportDebugLogs() {
  auto& platform = services_.platform;
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_,
      [&platform, &secret = services_.geminiKey,
       logFile = services_.logFile]() -> Result<std::string> {
        const DebugReport report{platform.files, platform.settings, secret.apiKey(), logFile};
        const Date now = platform.dispatch.clock().wallNow();
        const std::string folder = platform.files.desktopFolder();
        const std::string path = folder + "/" + DebugReport::suggestedName(now);
        if (auto written = report.write(path, now); !written) return fail(written.error());
        // The line below names the file where there is no file manager.
        (void)platform.workspace.open(folder);
        return path;
      },
      [this](const Result<std::string>& path) {
        if (path) return services_.logger.print("✅ Debug logs exported to " + *path);
        services_.logger.print("❌ Debug logs could not be exported: " + path.error().description);
      });
}

std::string PreferencesView::historyFolder() const {
  return services_.platform.files.dataFolder() + "/Kestrin/History";
}

std::string PreferencesView::cacheFolder() const {
  return services_.platform.files.cacheFolder() + "/Kestrin";
}

void PreferencesView::clearHistory() {
  ask({"Clear All History?",
       "This will permanently delete all transcription history. This action cannot be undone.",
       {"Clear", "Cancel"}},
      [this](size_t button) {
        if (button != 0) return;
        if (services_.forgetHistory) services_.forgetHistory();
        emptyThenTell(historyFolder(),
                      {"History Cleared", "All transcription history has been deleted.", {"OK"}});
      });
}

void PreferencesView::clearCache() {
  emptyThenTell(cacheFolder(), {"Cache Cleared", "Application cache has been cleared.", {"OK"}});
}

void PreferencesView::emptyThenTell(const std::string& folder, PreferenceDialog notice) {
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_,
      [&files = services_.platform.files, folder] {
        emptyFolder(files, folder);
        return true;
      },
      [this, notice](bool) {
        refreshStorage();
        ask(notice);
      });
}

/// Nothing is synchronised yet; the row shows the rhythm that it will have.
void PreferencesView::syncNow() {
  syncing_ = true;
  changed();
  syncTimer_ = dispatch_.after(dispatch_.mainQueue(), syncTakes, lifetime_.guard([this] {
    syncing_ = false;
    settings_.set("lastSyncTime", dates::iso8601(dispatch_.clock().wallNow()));
    changed();
  }));
}

void PreferencesView::checkForUpdates() {
  updates_->ask(onMain<std::optional<PublishedVersion>>(
      dispatch_, lifetime_,
      [this](const std::optional<PublishedVersion>& published) { tellVersion(published); }));
}

void PreferencesView::tellVersion(const std::optional<PublishedVersion>& published) {
  const std::string own = applicationVersion;
  if (!published) return ask({"You're Up to Date", "You're running version " + own + ".", {"OK"}});
  if (!isNewerVersion(published->version, own)) {
    return ask({"You're Up to Date",
                "You're running the latest version of Kestrin (" + own + ").",
                {"OK"}});
  }
  const std::string address =
      published->downloadUrl.empty() ? updates_->downloadPage() : published->downloadUrl;
  ask({"Update Available",
       "Version " + published->version + " is available. You are running version " + own + ".",
       {"Download", "Later"}},
      [this, address](size_t button) {
        if (button == 0) openAddress(address);
      });
}

void PreferencesView::openAddress(const std::string& address) {
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_,
      [&workspace = services_.platform.workspace, address] { return workspace.open(address); },
      [this](const Status& opened) {
        if (!opened) services_.logger.print("⚠️ " + opened.error().description);
      });
}

void PreferencesView::resetAll() {
  ask({"Reset to defaults",
       "This will reset all preferences to their default values. This action cannot be undone.",
       {"Reset", "Cancel"}},
      [this](size_t button) {
        if (button != 0) return;
        if (settings_.boolean("pref_launchAtLogin")) registerLogin(false);
        for (const std::string& key : settings_.keys()) {
          if (key.rfind(preferencePrefix, 0) == 0) settings_.remove(key);
        }
        launchAtLoginShown_.reset();
        page_ = PreferencePage::general;
        ask({"Reset to defaults",
             "All preferences have been reset to their default values.",
             {"OK"}});
      });
}

}  // namespace kestrin
