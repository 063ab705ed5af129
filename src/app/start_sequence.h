#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/app_delegate.h"
#include "app/core_services.h"
#include "app/loading_overlay_view.h"
#include "app/main_window_controller.h"
#include "dictation/audio_recorder.h"
#include "platform/lifetime.h"
#include "platform/platform.h"
#include "services/local/connection_warmup_service.h"
#include "services/local/service_host.h"

namespace kestrin {

/// From set-up to ready: brings everything up in order, starts the services that the user chose,
/// waits until they answer, and only then lets presses count. No service's failure ends it: a host
/// that fails is started again, and after the last retry the application opens all the same. Main
/// queue only.
class StartSequence {
 public:
  static constexpr int maxWarmupRetries = 10;
  static constexpr std::chrono::seconds restartPause{2};
  static constexpr std::chrono::seconds keepAliveInterval{120};
  static constexpr std::chrono::seconds prewarmTimeout{5};

  struct Parts {
    Platform& platform;
    CoreServices& core;
    MainWindowController& mainWindow;
    AudioRecorder& recorder;
    AppDelegate& delegate;
    std::string holdKeyName;
    std::string companionProgram;
  };
  /// What later steps belong to; each may be empty.
  struct Hooks {
    std::function<void()> startPresence;
    std::function<void()> startAllBackgroundCaches;
    std::function<void()> stopPresence;
    std::function<void()> setupGlobalIncomingCallHandler;
    std::function<void()> bringToFront;
    /// Something that only the user can decide about the services.
    std::function<void(const ServicePrompt&)> onPrompt;
  };

  explicit StartSequence(Parts parts);

  void startApp(bool accessibilityTrusted);
  /// Presence goes offline, then the services are stopped; nothing of the start goes on.
  /// `completion` may be empty and runs when the services are stopped.
  void applicationWillTerminate(std::function<void()> completion);

  LoadingOverlayView& loadingOverlay() { return loadingOverlay_; }
  const ConnectionWarmupService& warmup() const { return warmup_; }
  int warmupRetryCount() const { return warmupRetryCount_; }

  Hooks hooks;
  /// After a change of a service's state or of readiness.
  std::function<void()> onChange;

 private:
  void startDockerASRWithWarmup();
  void hostStatusChanged(const ServiceHostStatus& status);
  void hostFailed(const std::string& text);
  void servicesRun();
  void warmupConnectionsWithRetry();
  void warmedUp(bool allReady);
  void becomeReady(const std::string& text, StatusColor color);
  void prewarmLLM();
  void startLLMKeepAlive();
  void showServices(const ServiceStatus& status, ServiceState otherwise);
  void show(const std::string& text, StatusColor color = StatusColor::orange);

  Parts parts_;
  Dispatch& dispatch_;
  Logger& logger_;
  const Endpoints endpoints_;
  LoadingOverlayView loadingOverlay_;
  ConnectionWarmupService warmup_;
  std::unique_ptr<ServiceHost> host_;
  ServiceHostKind hostKind_ = ServiceHostKind::external;
  std::shared_ptr<HttpSession> sharedSession_;
  int warmupRetryCount_ = 0;
  bool servicesRan_ = false;  ///< the probes have begun
  bool terminated_ = false;
  std::optional<std::string> lastWarmupLLMProviderLogged_;
  TimerHandle retryTimer_;
  TimerHandle llmKeepAliveTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
