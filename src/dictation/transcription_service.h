#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "dictation/captured_context.h"
#include "identity/device_id_manager.h"
#include "identity/gemini_key_manager.h"
#include "identity/user.h"
#include "platform/http.h"
#include "platform/notification_center.h"
#include "services/local/endpoints.h"
#include "services/local/local_asr_service.h"
#include "usermodel/user_preferences.h"

namespace kestrin {

class SSEClient;
struct AgentEventHandlers;

/// What a finished stream delivers.
struct TranscriptionResult {
  std::string text;
  std::string mode;
  bool autoDetected = false;
  std::string transcript;
  bool isCommand = false;
  std::optional<std::string> commandType;
  bool isVoiceResponse = false;
  std::optional<Bytes> audioResponse;
  std::optional<std::vector<Json>> calendarEvents;
  std::optional<Json> createdEvent;
  std::optional<std::string> shouldNavigate;
};

/// What a request says about the user that higher subsystems know. Any of these may be empty; they
/// are called on the caller's thread (the static part of the body) or on a stream's queue (the
/// refresh) and must not wait.
struct RequestContextSources {
  std::function<std::string()> voiceProfileSummary;
  /// The style text of the cached archetype, when there is one.
  std::function<std::optional<std::string>()> archetypeStylePrompt;
  std::function<std::optional<User>()> signedInUser;
  /// Both deliver once, on any thread: the new personality text; the new archetype's name.
  std::function<void(const std::string& userId, const std::string& voiceProfileSummary,
                     std::function<void(Result<std::string>)>)>
      refreshPersonality;
  std::function<void(const std::string& userId, std::function<void(Result<std::string>)>)>
      classifyArchetype;
  /// Plays a spoken reply; called on the main queue.
  std::function<void(Bytes audio, std::function<void()> completion)> playAudio;
};

/// The client of the agent's streaming pipeline: PCM and context in, text chunks and one result
/// out. Each stream is independent; two can run together. Make it with `std::make_shared`.
///
/// Posts on the main queue: "BackgroundResearchStarted" {research_id}, "OutputRouteReceived"
/// {channel, suppress_paste, auto_speak, show_in_panel}, "ExecuteAction" (the action itself).
class TranscriptionService : public std::enable_shared_from_this<TranscriptionService> {
 public:
  using ChunkHandler = std::function<void(const std::string& text)>;
  using Completion = std::function<void(Result<TranscriptionResult>)>;

  TranscriptionService(Dispatch& dispatch, Http& http, SettingsStore& settings,
                       NotificationCenter& notifications, Logger& logger, LocalASRService& asr,
                       UserPreferences& preferences, DeviceIdManager& deviceId,
                       GeminiKeyManager& geminiKey, const Endpoints& endpoints,
                       RequestContextSources sources);
  ~TranscriptionService();

  /// Returns at once. `onStreamChunk` (for the caret: nothing once the mode is "command") and
  /// `completion` (once) run on the thread that delivers the stream, never on the main queue.
  /// Errors: the recogniser's or the transport's, or "TranscriptionService" ("Invalid streaming
  /// URL").
  void transcribePCMStreaming(Bytes pcmData, const std::string& mode,
                              const CapturedContext& context,
                              const std::optional<std::string>& authToken,
                              ChunkHandler onStreamChunk, Completion completion);

  /// Waits for the reports to the backend that are under way; false when the time ran out. For
  /// programs that end after one dictation.
  bool waitForBackendReports(Duration timeout) { return backendReports_.wait(timeout); }

 private:
  struct Stream;

  void startStream(const std::shared_ptr<Stream>& stream, const Bytes& pcmData,
                   const std::optional<std::string>& authToken);
  Json buildStaticRequestBody(const Stream& stream);
  std::optional<User> signedInUser() const;
  void addUser(Json& body, const std::optional<User>& user) const;
  void processTranscriptStreamingFast(const std::shared_ptr<Stream>& stream);
  AgentEventHandlers eventHandlers(const std::shared_ptr<Stream>& stream);
  void finishStream(const std::shared_ptr<Stream>& stream, const std::optional<Error>& error);
  void updateVoiceProfileInBackground(const Stream& stream);
  void logTranscriptionToCloudBackend(const Stream& stream);
  void maybeRefreshProfilesInBackground();
  /// The answer is not read; `what` and `failureLabel` begin the lines that are logged.
  void postToBackend(const std::string& path, const Json& body, const std::string& what,
                     const std::string& source, const std::string& failureLabel);
  std::string timezone() const;
  static Json localFiles(const CapturedContext& context);

  Dispatch& dispatch_;
  Http& http_;
  SettingsStore& settings_;
  NotificationCenter& notifications_;
  Logger& logger_;
  LocalASRService& asr_;
  UserPreferences& preferences_;
  DeviceIdManager& deviceId_;
  GeminiKeyManager& geminiKey_;
  const Endpoints endpoints_;
  const RequestContextSources sources_;
  std::shared_ptr<HttpSession> backendSession_;
  Group backendReports_;  ///< those under way

  std::mutex mutex_;  ///< guards what follows
  std::shared_ptr<SSEClient> sseClient_;
  int requestsSinceRefresh_ = 0;
  bool isRefreshing_ = false;
};

}  // namespace kestrin
