#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/app_delegate.h"
#include "app/core_services.h"
#include "app/main_window_controller.h"
#include "app/readiness.h"
#include "app/status_report.h"
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
#include "services/local/service_host.h"

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
  };

  Application(Platform& platform, Options options);
  ~Application();

  /// Brings everything up: hold key, companion, services. Presses are refused until they answer.
  void start();
  /// Ends recording and companion; nothing is running afterwards.
  void stop();

  /// A command from the session bus or the tray's menu.
  void obey(ControlCommand command);
  /// As `kestrin status --json` prints it. Any thread; does not wait.
  std::string statusJson() const { return report_.get().toJson().dump(); }

  const std::string& holdKeyName() const { return holdKeyName_; }
  bool hasUndelivered() const { return !undelivered_.empty(); }
  bool isPreRollActive() const { return recorder_.isPreRollActive(); }
  CoreServices& core() { return core_; }
  MainWindowController& mainWindow() { return mainWindow_; }
  OverlayWindow& overlay() { return overlay_; }
  AppDelegate& delegate() { return delegate_; }
  UndeliveredStore& undelivered() { return undelivered_; }
  StreamingRequestManager& requests() { return *manager_; }

  /// After any change that the tray or a window may show.
  std::function<void()> onChange;
  /// "show" and "quit" of the session bus.
  std::function<void()> onShow;
  std::function<void()> onQuit;

 private:
  void bringUpServices();
  void hostChanged(const ServiceHostStatus& status);
  void probeServices();
  void becomeReady(bool allAnswered);
  void takeActionTier();
  void changed();
  DictationServices dictationServices();

  Platform& platform_;
  const Options options_;
  const std::string holdKeyName_;
  StatusReport report_;
  CoreServices core_;
  UndeliveredStore undelivered_;
  std::shared_ptr<StreamingRequestManager> manager_;
  MainWindowController mainWindow_;
  AudioRecorder recorder_;
  OverlayWindow overlay_;
  CaretPaste paste_;
  ActionExecutor actions_;
  CommandExecutor commands_;
  AppDelegate delegate_;
  Readiness readiness_;
  const std::unique_ptr<ServiceHost> host_;
  bool awaitingHost_ = false;
  std::vector<SubscriptionHandle> subscriptions_;
  Lifetime lifetime_;
};

}  // namespace kestrin
