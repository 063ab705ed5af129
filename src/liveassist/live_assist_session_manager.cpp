#include "liveassist/live_assist_session_manager.h"

#include <algorithm>
#include <utility>

namespace kestrin {
namespace {

constexpr const char* source = "Session";
constexpr const char* domain = "LiveAssistSessionManager";
constexpr const char* updatePath = "/live-assist/session/update";
constexpr std::chrono::milliseconds patience{60'000};
// A year of sessions is some hundred kilobytes.
constexpr size_t largestAnswer = 32u << 20;

std::string sessionPath(const std::string& sessionId) {
  return "/live-assist/session/" + urlEncode(sessionId);
}

Json objectIn(const Result<HttpResponse>& response) {
  auto json = response ? Json::parse(response->body) : Result<Json>(Json());
  return json && json->isObject() ? std::move(*json) : Json::object();
}

/// Why a request did not do its work; nothing when it did.
std::optional<std::string> failureOf(const Result<HttpResponse>& response) {
  if (!response) return response.error().description;
  if (response->status < 400) return std::nullopt;
  const std::string said = objectIn(response).stringAt("error", "");
  return "status " + std::to_string(response->status) + (said.empty() ? "" : ", " + said);
}

}  // namespace

LiveAssistSessionManager::LiveAssistSessionManager(Dispatch& dispatch, Http& http, Files& files,
                                                   Logger& logger, std::string deviceId,
                                                   std::string baseURL)
    : dispatch_(dispatch),
      files_(files),
      logger_(logger),
      deviceId_(std::move(deviceId)),
      baseURL_(std::move(baseURL)),
      ordered_(http.makeSession({.requestTimeout = patience,
                                 .maximumConnectionsPerHost = 1,
                                 .maximumBodyBytes = largestAnswer})),
      reads_(http.makeSession({.requestTimeout = patience, .maximumBodyBytes = largestAnswer})) {}

void LiveAssistSessionManager::send(HttpSession& session, HttpRequest request, Answer answer) {
  request.timeout = patience;
  request.setHeader("X-Device-Id", deviceId_);
  // One guard for the way through both queues: the main queue is where this object lives.
  session.data(std::move(request),
               [main = dispatch_.mainQueue(),
                answer = lifetime_.guard(std::move(answer))](const Result<HttpResponse>& response) {
                 main->post([answer, response]() mutable { answer(response); });
               });
}

void LiveAssistSessionManager::post(const std::string& path, const Json& body, Answer answer) {
  send(*ordered_, jsonPost(baseURL_ + path, body.dump()), std::move(answer));
}

void LiveAssistSessionManager::get(const std::string& path, Answer answer) {
  send(*reads_, HttpRequest{.url = baseURL_ + path}, std::move(answer));
}

void LiveAssistSessionManager::postAndForget(const std::string& path, const Json& body,
                                             const std::string& what) {
  post(path, body, [this, what](const Result<HttpResponse>& response) {
    if (const auto failure = failureOf(response)) {
      logger_.log(source, LogLevel::error, "Failed to " + what + ": " + *failure);
    }
  });
}

void LiveAssistSessionManager::startSession() {
  sessionStartTime_ = dispatch_.clock().wallNow();
  transcriptCount_ = 0;
  logger_.log(source, LogLevel::info, "Starting new Live Assist session");
  post("/live-assist/session/start",
       Json::object({{"device_id", deviceId_}, {"user_id", deviceId_}}),
       [this, start = ++starts_](const Result<HttpResponse>& response) {
         // A slow answer to an earlier start must not take the place of the newer session.
         if (start == starts_) sessionStarted(response);
       });
}

void LiveAssistSessionManager::sessionStarted(const Result<HttpResponse>& response) {
  if (!response) {
    return logger_.log(source, LogLevel::error,
                       "Failed to start session: " + response.error().description);
  }
  const auto id = objectIn(response).stringAt("sessionId");
  if (!id) return logger_.log(source, LogLevel::error, "Invalid session start response");
  currentSessionId_ = *id;
  logger_.log(source, LogLevel::info, "Session started: " + *id);
  if (onSessionStarted) onSessionStarted();
}

void LiveAssistSessionManager::endSession() {
  if (!currentSessionId_) return;
  const std::string id = *currentSessionId_;
  post("/live-assist/session/end", Json::object({{"sessionId", id}}),
       [this, id](const Result<HttpResponse>& response) {
         if (const auto failure = failureOf(response)) {
           logger_.log(source, LogLevel::error, "Failed to end session: " + *failure);
         } else {
           logger_.log(source, LogLevel::info, "Session ended successfully: " + id);
         }
       });
  const auto lasted = sessionStartTime_ ? std::chrono::duration_cast<std::chrono::seconds>(
                                              dispatch_.clock().wallNow() - *sessionStartTime_)
                                        : std::chrono::seconds(0);
  logger_.log(source, LogLevel::info,
              "Ending session: " + id + " (" + std::to_string(transcriptCount_) + " transcripts, " +
                  std::to_string(lasted.count()) + "s)");
  currentSessionId_.reset();
  sessionStartTime_.reset();
}

void LiveAssistSessionManager::logTranscript(LAAudioChannel channel, const std::string& text,
                                             int speakerNumber, const Json& metadata) {
  if (!currentSessionId_) return;
  ++transcriptCount_;
  postAndForget("/live-assist/transcript",
                Json::object({{"sessionId", *currentSessionId_},
                              {"userId", deviceId_},
                              {"channel", rawValue(channel)},
                              {"text", text},
                              {"speakerNumber", speakerNumber},
                              {"metadata", metadata}}),
                "log transcript");
}

void LiveAssistSessionManager::syncFilesToBackend() {
  if (!currentSessionId_) return;
  Json attached = Json::array();
  for (const LAAttachedFile& file : attachedFiles_) attached.push(file.toJson());
  postAndForget(updatePath,
                Json::object({{"sessionId", *currentSessionId_},
                              {"attachedFiles", attached},
                              {"pinnedItems", Json(pinnedItems_)},
                              {"useCase", rawValue(useCase)}}),
                "sync files");
}

void LiveAssistSessionManager::updateContact(const std::string& email, const std::string& name) {
  if (!currentSessionId_) return;
  postAndForget(
      updatePath,
      Json::object(
          {{"sessionId", *currentSessionId_}, {"contactEmail", email}, {"contactName", name}}),
      "update contact");
}

void LiveAssistSessionManager::saveSessionFeedbackSnapshot(const LAFeedbackSnapshot& snapshot) {
  if (!currentSessionId_) return;
  postAndForget(
      updatePath,
      Json::object({{"sessionId", *currentSessionId_}, {"feedbackSnapshot", snapshot.toJson()}}),
      "save feedback");
}

void LiveAssistSessionManager::loadHistory() {
  logger_.log(source, LogLevel::info, "Loading session history");
  get("/live-assist/sessions/" + urlEncode(deviceId_), [this](
                                                           const Result<HttpResponse>& response) {
    if (!response) {
      return logger_.log(source, LogLevel::error,
                         "Failed to load history: " + response.error().description);
    }
    auto sessions = objectIn(response).objectListAt("sessions");
    if (!sessions) {
      return logger_.log(source, LogLevel::warning, "Invalid session history response");
    }
    const std::string count = std::to_string(sessions->size());
    cachedSessions_ = std::move(*sessions);
    logger_.log(source, LogLevel::info, "Loaded " + count + " sessions (caching " + count + ")");
    if (onHistoryLoaded) onHistoryLoaded();
  });
}

void LiveAssistSessionManager::loadSessionTranscripts(const std::string& sessionId) {
  get(sessionPath(sessionId) + "/transcripts",
      [this, sessionId](const Result<HttpResponse>& response) {
        const auto transcripts = objectIn(response).objectListAt("transcripts");
        const auto receiver = delegate.lock();
        if (transcripts && receiver) receiver->didLoadTranscripts(*this, *transcripts, sessionId);
      });
}

void LiveAssistSessionManager::loadFullSession(const std::string& sessionId,
                                               std::function<void(Result<Json>)> completion) {
  get(sessionPath(sessionId),
      [completion = std::move(completion)](const Result<HttpResponse>& response) {
        if (const auto failure = failureOf(response)) return completion(fail(domain, 1, *failure));
        const Json body = objectIn(response);
        const Json* session = body.objectAt("session");
        if (session == nullptr) return completion(fail(domain, 2, "Invalid session response"));
        completion(*session);
      });
}

void LiveAssistSessionManager::emailSessionReport(const std::string& sessionId,
                                                  std::function<void(Status)> completion) {
  post(sessionPath(sessionId) + "/deliver",
       Json::object({{"channel", "email"}, {"device_user_id", deviceId_}}),
       [this, sessionId, completion = std::move(completion)](const Result<HttpResponse>& response) {
         const Json body = objectIn(response);
         if (body.boolAt("success").value_or(false)) {
           logger_.log(source, LogLevel::info, "Report emailed for session " + sessionId);
           return completion({});
         }
         const std::string said = body.stringAt("error", "");
         const std::string reason =
             said.empty() ? failureOf(response).value_or("Unknown error") : said;
         logger_.log(source, LogLevel::error, "Email delivery failed: " + reason);
         completion(fail(domain, 3, reason));
       });
}

}  // namespace kestrin
