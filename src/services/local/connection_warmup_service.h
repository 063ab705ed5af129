#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "identity/gemini_key_manager.h"
#include "platform/dispatch/dispatch.h"
#include "platform/http.h"
#include "platform/lifetime.h"
#include "platform/settings.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// Which of the services that a dictation needs answered in the current or last run.
struct ServiceStatus {
  bool asrReady = false;
  bool llmReady = false;
  bool agentReady = false;
  bool backendReady = false;

  bool allReady() const { return asrReady && llmReady && agentReady && backendReady; }
  bool operator==(const ServiceStatus&) const = default;
};

/// Asks the four services at the same time whether they can be reached, and so opens the
/// connections that the first real request will use. One attempt a call: when to try again is the
/// caller's matter. Main queue only; the secret store is read on a background queue, so let the
/// engine end its jobs before this is destroyed.
class ConnectionWarmupService {
 public:
  ConnectionWarmupService(Dispatch& dispatch, Http& http, SettingsStore& settings, Logger& logger,
                          GeminiKeyManager& geminiKey, const Endpoints& endpoints);

  /// `completion` gets `isWarmedUp` on the main queue, later. Not while a run is under way.
  void warmup(std::function<void(bool)> completion);

  bool isWarmedUp() const { return isWarmedUp_; }
  bool warmupInProgress() const { return warmupInProgress_; }
  const ServiceStatus& status() const { return status_; }
  /// "Local", "Gemini" or "Off".
  const std::string& llmProvider() const { return llmProvider_; }
  std::string llmServiceDisplayName() const {
    return "Natural language service (" + llmProvider_ + ")";
  }

  /// After each probe, with the flags so far.
  std::function<void(const ServiceStatus&)> onStatusChange;
  /// The signed-in user's token, if somebody is signed in; must not wait.
  std::function<std::optional<std::string>()> idToken;

 private:
  using Answer = std::function<void(const Result<HttpResponse>&)>;
  using Verdict = std::function<void(bool ready)>;

  /// `answer` runs on the main queue.
  void send(HttpRequest request, Answer answer);
  void warmupASR(Verdict done);
  void warmupLLM(Verdict done);
  void chooseLLM(bool useLocal, const std::string& geminiKey, const Verdict& done);
  void warmupLocalLLM(const std::string& geminiKey, const Verdict& done);
  void sendGeminiWarmupRequest(const std::string& geminiKey, Verdict done);
  void warmupAgent(Verdict done);
  void warmupCloudBackend(Verdict done);
  void warmupCloudBackendWithAuth(Verdict done);
  void notifyStatusChange();
  void finish(const std::function<void(bool)>& completion);

  Dispatch& dispatch_;
  SettingsStore& settings_;
  Logger& logger_;
  GeminiKeyManager& geminiKey_;
  const Endpoints endpoints_;
  std::shared_ptr<HttpSession> session_;
  bool isWarmedUp_ = false;
  bool warmupInProgress_ = false;
  ServiceStatus status_;
  std::string llmProvider_ = "Off";
  Lifetime lifetime_;
};

}  // namespace kestrin
