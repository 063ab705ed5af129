#include "services/local/connection_warmup_service.h"

#include <utility>

#include "platform/dispatch/background.h"
#include "platform/json/json.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

constexpr auto probeTimeout = 10s;
/// The hosted model answers a real request, which takes its time.
constexpr auto geminiTimeout = 25s;
constexpr auto backendTimeout = 15s;
/// A peer that sends a byte now and then must not hold up the start either.
constexpr auto longestProbe = 30s;

bool isOk(const Result<HttpResponse>& answer) { return answer && answer->status == 200; }

/// Only the transport has words for its failures; a status has none.
std::string reasonOf(const Result<HttpResponse>& answer) {
  return answer ? "Unknown" : answer.error().description;
}

bool saysStatusOk(const HttpResponse& response) {
  const auto body = Json::parse(response.body);
  return body && body->stringAt("status") == "ok";
}

}  // namespace

ConnectionWarmupService::ConnectionWarmupService(Dispatch& dispatch, Http& http,
                                                 SettingsStore& settings, Logger& logger,
                                                 GeminiKeyManager& geminiKey,
                                                 const Endpoints& endpoints)
    : dispatch_(dispatch),
      settings_(settings),
      logger_(logger),
      geminiKey_(geminiKey),
      endpoints_(endpoints),
      session_(
          http.makeSession({.requestTimeout = probeTimeout, .resourceTimeout = longestProbe})) {}

void ConnectionWarmupService::warmup(std::function<void(bool)> completion) {
  warmupInProgress_ = true;
  status_ = {};
  logger_.print("🔥 Starting connection warmup...");
  const auto group = std::make_shared<Group>(dispatch_, "connection warm-up");
  const auto probe = [&](void (ConnectionWarmupService::*start)(Verdict),
                         bool ServiceStatus::*flag) {
    group->enter();
    (this->*start)([this, group, flag](bool ready) {
      status_.*flag = ready;
      notifyStatusChange();
      group->leave();
    });
  };
  probe(&ConnectionWarmupService::warmupASR, &ServiceStatus::asrReady);
  probe(&ConnectionWarmupService::warmupLLM, &ServiceStatus::llmReady);
  probe(&ConnectionWarmupService::warmupAgent, &ServiceStatus::agentReady);
  probe(&ConnectionWarmupService::warmupCloudBackend, &ServiceStatus::backendReady);
  group->notify(dispatch_.mainQueue(), lifetime_.guard([this, completion = std::move(completion)] {
    finish(completion);
  }));
}

void ConnectionWarmupService::finish(const std::function<void(bool)>& completion) {
  warmupInProgress_ = false;
  isWarmedUp_ = status_.allReady();
  if (isWarmedUp_) {
    logger_.print("🔥 ✅ All connections warmed up and ready!");
  } else {
    logger_.print("🔥 ⚠️ Some connections failed to warm up");
    const auto tell = [this](const std::string& service, bool ready) {
      logger_.print("   " + service + ": " + (ready ? "✅" : "❌"));
    };
    tell("ASR", status_.asrReady);
    tell("LLM", status_.llmReady);
    tell("Agent", status_.agentReady);
    tell("Backend", status_.backendReady);
  }
  completion(isWarmedUp_);
}

void ConnectionWarmupService::notifyStatusChange() {
  if (onStatusChange) onStatusChange(status_);
}

void ConnectionWarmupService::send(HttpRequest request, Answer answer) {
  session_->data(std::move(request), onMain(dispatch_, lifetime_, std::move(answer)));
}

void ConnectionWarmupService::warmupASR(Verdict done) {
  send({.url = endpoints_.asr + "/", .timeout = probeTimeout},
       [this, done = std::move(done)](const Result<HttpResponse>& answer) {
         if (isOk(answer)) {
           logger_.print(saysStatusOk(*answer) ? "🔥 ASR Engine ready (status: ok)"
                                               : "🔥 ASR Engine ready");
         } else {
           logger_.print("🔥 ASR Engine not ready: " + reasonOf(answer));
         }
         done(isOk(answer));
       });
}

void ConnectionWarmupService::warmupLLM(Verdict done) {
  const bool useLocal = settings_.boolean("pref_useLocalLLM");
  // The secret store may have to be unlocked or be slow to start.
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_, [&keys = geminiKey_] { return keys.apiKey(); },
      [this, useLocal, done = std::move(done)](const std::string& key) {
        chooseLLM(useLocal, key, done);
      });
}

void ConnectionWarmupService::chooseLLM(bool useLocal, const std::string& geminiKey,
                                        const Verdict& done) {
  if (useLocal) return warmupLocalLLM(geminiKey, done);
  if (!geminiKey.empty()) {
    return sendGeminiWarmupRequest(geminiKey, [this, done](bool ready) {
      llmProvider_ = "Gemini";
      done(ready);
    });
  }
  logger_.print("🔥 Natural language service disabled (no local LLM, no Gemini key)");
  llmProvider_ = "Off";
  // Without a language model there is nothing to wait for.
  done(true);
}

void ConnectionWarmupService::warmupLocalLLM(const std::string& geminiKey, const Verdict& done) {
  send({.url = endpoints_.llm + "/health", .timeout = probeTimeout},
       [this, geminiKey, done](const Result<HttpResponse>& answer) {
         if (isOk(answer)) {
           logger_.print("🔥 Natural language service ready (Local LLM)");
           llmProvider_ = "Local";
           return done(true);
         }
         logger_.print("🔥 Local LLM not ready: " + reasonOf(answer));
         if (geminiKey.empty()) {
           llmProvider_ = "Local";
           return done(false);
         }
         sendGeminiWarmupRequest(geminiKey, [this, done](bool ready) {
           llmProvider_ = ready ? "Gemini" : "Local";
           done(ready);
         });
       });
}

void ConnectionWarmupService::sendGeminiWarmupRequest(const std::string& geminiKey, Verdict done) {
  const auto body = Json::object({{"transcript", "Say OK"},
                                  {"mode", "chat"},
                                  {"app_context", "{}"},
                                  {"gemini_api_key", geminiKey},
                                  {"use_local_llm", false}});
  HttpRequest request = jsonPost(endpoints_.agent + "/process", body.dump());
  request.timeout = geminiTimeout;
  send(std::move(request), [this, done = std::move(done)](const Result<HttpResponse>& answer) {
    logger_.print(isOk(answer) ? "🔥 Natural language service ready (Gemini)"
                               : "🔥 Gemini warmup failed: " + reasonOf(answer));
    done(isOk(answer));
  });
}

void ConnectionWarmupService::warmupAgent(Verdict done) {
  send({.url = endpoints_.agent + "/health", .timeout = probeTimeout},
       [this, done = std::move(done)](const Result<HttpResponse>& answer) {
         logger_.print(isOk(answer) ? "🔥 Agent Server ready"
                                    : "🔥 Agent Server not ready: " + reasonOf(answer));
         done(isOk(answer));
       });
}

void ConnectionWarmupService::warmupCloudBackend(Verdict done) {
  send({.url = endpoints_.backend + "/", .timeout = backendTimeout},
       [this, done = std::move(done)](const Result<HttpResponse>& answer) {
         if (isOk(answer)) {
           logger_.print(saysStatusOk(*answer) ? "🔥 Cloud Backend ready (status: ok)"
                                               : "🔥 Cloud Backend ready");
           return done(true);
         }
         logger_.print("🔥 Cloud Backend not ready: " + reasonOf(answer));
         warmupCloudBackendWithAuth(done);
       });
}

/// Dictation works without the backend, so this never ends with a no.
void ConnectionWarmupService::warmupCloudBackendWithAuth(Verdict done) {
  const auto token = idToken ? idToken() : std::nullopt;
  if (!token) {
    logger_.print("🔥 No auth token for backend warmup, but marking as ready (optional)");
    return done(true);
  }
  send({.url = endpoints_.backend + "/voice-profile",
        .headers = {{"Authorization", "Bearer " + *token}},
        .timeout = probeTimeout},
       [this, done = std::move(done)](const Result<HttpResponse>& answer) {
         const bool fine = answer && answer->status >= 200 && answer->status < 300;
         logger_.print(fine ? "🔥 Cloud Backend profile endpoint ready"
                            : "🔥 Cloud Backend check failed: " + reasonOf(answer));
         done(true);
       });
}

}  // namespace kestrin
