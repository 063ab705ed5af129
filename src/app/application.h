#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/app_delegate.h"
#include "app/calls_sources.h"
#include "app/core_services.h"
#include "app/main_window_controller.h"
#include "app/notification_categories.h"
#include "app/pages.h"
#include "app/service_watch.h"
#include "app/setup_checklist.h"
#include "app/start_sequence.h"
#include "app/status_report.h"
#include "diagnostics/log_file_redirector.h"
#include "dictation/action_executor.h"
#include "dictation/audio_recorder.h"
#include "dictation/caret_paste.h"
#include "dictation/command_executor.h"
#include "dictation/context_capture.h"
#include "dictation/overlay_window.h"
#include "dictation/streaming_request_manager.h"
#include "dictation/undelivered.h"
#include "dictation/workspace_file_service.h"
#include "platform/control_bus.h"
#include "platform/lifetime.h"
#include "platform/platform.h"
#include "usermodel/location_service.h"
#include "usermodel/preferences/preference_changes.h"
#include "usermodel/preferences/preferences_applier.h"

namespace kestrin {

/// The composition root: makes every object of the application from the ports, connects them and
/// owns them in the order of their lives. Main queue only, unless said otherwise.
///
/// Background jobs use what this owns: let the engine end its jobs before this is destroyed.
class Application {
 public:
  struct Options {
    Endpoints endpoints = Endpoints::fromEnvironment();
    /// Path or name of the companion's program.
    std::string companionProgram = "kestrin-companion";
    /// Path of the hosted calls' media library; empty: it is not installed.
    std::string mediaLibrary;
    /// Nobody asked for a window: at login, or when the session bus starts it.
    bool staysInTray = false;
  };

  Application(Platform& platform, Options options);
  ~Application();

  /// Launches: first-run setup where something is missing, then hold key, services and the rest.
  /// Presses are refused until the services answer.
  void start();
  /// Ends the recording and the services. `completion` runs once nothing is running any more, after
  /// some seconds at most; at once when all was stopped before. It may be empty.
  void stop(std::function<void()> completion = {});
  /// Somebody started the application again: shows the main window.
  void applicationShouldHandleReopen();
  /// "Setup & Permissions..." of the tray: looks again and tells by a notification.
  void tellSetup() { setup_.tell(); }

  /// A command from the session bus or the tray's menu.
  void obey(ControlCommand command);
  /// As `kestrin status --json` prints it. Any thread; does not wait.
  std::string statusJson() const { return report_.get().toJson().dump(); }

  /// The settings of the integrations, and the window of the Google account over them.
  void manageAccount();
  /// The user looks at the window, or speaks.
  void userWasActive();

  const std::string& holdKeyName() const { return holdKeyName_; }
  bool hasUndelivered() const { return !undelivered_.empty(); }
  bool isPreRollActive() const { return recorder_.isPreRollActive(); }
  /// Elevated only in a run in which the user said so ("elevate"); models cannot.
  SafetyTier actionTier() const { return actions_.currentTier; }
  CoreServices& core() { return core_; }
  MainWindowController& mainWindow() { return mainWindow_; }
  Pages& pages() { return pages_; }
  Calls& calls() { return calls_; }
  /// "answer", "hangup", or whom to call, from the session bus.
  void obeyCall(const std::string& what);
  OverlayWindow& overlay() { return overlay_; }
  AppDelegate& delegate() { return delegate_; }
  UndeliveredStore& undelivered() { return undelivered_; }
  StreamingRequestManager& requests() { return *manager_; }
  SetupChecklist& setup() { return setup_; }
  StartSequence& startSequence() { return startSequence_; }
  NotificationCategories& notices() { return notices_; }
  ServiceWatch& serviceWatch() { return serviceWatch_; }

  /// After any change that the tray or a window may show.
  std::function<void()> onChange;
  /// "show" and "quit" of the session bus.
  std::function<void()> onShow;
  std::function<void()> onQuit;
  /// Something that the user should see at once: the windows ask for it in the desktop's way.
  std::function<void()> onAttention;
  /// The window of the Google account is wanted.
  std::function<void()> onManageAccount;
  /// A call rings: once every three seconds.
  std::function<void()> onRing;

 private:
  void observe();
  void connectCalls();
  void showSetup();
  void showPrompt(const ServicePrompt& prompt);
  bool mayElevate() const;
  void setActionTier(SafetyTier tier);
  void forgetHistory();
  void changed();
  DictationServices dictationServices();
  PreferencesServices preferencesServices();

  Platform& platform_;
  const Options options_;
  const std::string holdKeyName_;
  /// Of the day on which this started.
  const std::string logFile_;
  StatusReport report_;
  CoreServices core_;
  UndeliveredStore undelivered_;
  std::shared_ptr<StreamingRequestManager> manager_;
  MainWindowController mainWindow_;
  /// Owns nothing: ends with this, so that whoever holds it weakly sees the window go.
  std::shared_ptr<MainWindowEffects> windowEffects_{std::make_shared<char>(), &mainWindow_};
  LocationService location_;
  PreferenceChanges preferenceChanges_;
  PreferencesApplier applier_;
  AudioRecorder recorder_;
  OverlayWindow overlay_;
  CaretPaste paste_;
  ActionExecutor actions_;
  CommandExecutor commands_;
  AppDelegate delegate_;
  NotificationCategories notices_;
  SetupChecklist setup_;
  StartSequence startSequence_;
  ServiceWatch serviceWatch_;
  Pages pages_;
  Calls calls_;
  std::vector<SubscriptionHandle> subscriptions_;
  Lifetime lifetime_;
};

}  // namespace kestrin
