#include "dictation/transcription_service.h"

#include "dictation/agent_events.h"
#include "dictation/sse_client.h"
#include "platform/text/text.h"
#include "services/local/agent_client.h"

namespace kestrin {
namespace {

constexpr int refreshInterval = 15;  ///< finished streams between profile refreshes
constexpr int recordingSampleRate = 16000;
constexpr std::chrono::seconds streamTimeout{120};
constexpr std::chrono::seconds backendTimeout{10};

constexpr const char* logSource = "Transcription";
constexpr const char* learningSource = "ContinuousLearning";

Json probabilities(const LocalASRResult& asr) { return asr.metadataProbs->toJson(); }

std::string yesNo(bool value) { return value ? "true" : "false"; }

}  // namespace

/// One dictation on its way through the recogniser and the agent.
struct TranscriptionService::Stream {
  std::string requestedMode;
  CapturedContext context;
  std::string contextJson;
  Json body;
  HttpRequest request;
  LocalASRResult asr;
  ChunkHandler onStreamChunk;
  Completion completion;
  std::unique_ptr<AgentEventReader> reader;  ///< on the stream's session queue
  int status = 0;
};

TranscriptionService::TranscriptionService(Dispatch& dispatch, Http& http, SettingsStore& settings,
                                           NotificationCenter& notifications, Logger& logger,
                                           LocalASRService& asr, UserPreferences& preferences,
                                           DeviceIdManager& deviceId, GeminiKeyManager& geminiKey,
                                           const Endpoints& endpoints,
                                           RequestContextSources sources)
    : dispatch_(dispatch),
      http_(http),
      settings_(settings),
      notifications_(notifications),
      logger_(logger),
      asr_(asr),
      preferences_(preferences),
      deviceId_(deviceId),
      geminiKey_(geminiKey),
      endpoints_(endpoints),
      sources_(std::move(sources)),
      backendSession_(http.makeSession({})),
      backendReports_(dispatch, "reports to the backend") {}

TranscriptionService::~TranscriptionService() = default;

void TranscriptionService::transcribePCMStreaming(Bytes pcmData, const std::string& mode,
                                                  const CapturedContext& context,
                                                  const std::optional<std::string>& authToken,
                                                  ChunkHandler onStreamChunk,
                                                  Completion completion) {
  auto stream = std::make_shared<Stream>();
  stream->requestedMode = mode;
  stream->context = context;
  stream->onStreamChunk = std::move(onStreamChunk);
  stream->completion = std::move(completion);
  // The first reading of the secret store may take seconds.
  if (!dispatch_.mainQueue()->isCurrent()) return startStream(stream, pcmData, authToken);
  dispatch_.globalQueue()->post([self = shared_from_this(), stream, pcmData = std::move(pcmData),
                                 authToken] { self->startStream(stream, pcmData, authToken); });
}

void TranscriptionService::startStream(const std::shared_ptr<Stream>& stream, const Bytes& pcmData,
                                       const std::optional<std::string>& authToken) {
  logger_.log(logSource, LogLevel::info,
              "Starting streaming pipeline (PCM: " + std::to_string(pcmData.size()) + " bytes)");
  // Everything but the transcript is ready before the recogniser is asked, so that nothing but the
  // sending remains when it answers.
  stream->contextJson = stream->context.toJson().dump();
  stream->body = buildStaticRequestBody(*stream);
  HttpRequest& request = stream->request;
  request.method = "POST";
  request.url = endpoints_.agent + "/process/stream";
  if (!isHttpUrl(request.url)) {
    stream->completion(fail("TranscriptionService", 1, "Invalid streaming URL"));
    return;
  }
  request.setHeader("Content-Type", "application/json");
  request.setHeader("Accept", "text/event-stream");
  if (authToken) request.setHeader("Authorization", "Bearer " + *authToken);
  request.setHeader("X-Device-Id", deviceId_.deviceId());
  request.timeout = streamTimeout;

  asr_.transcribePCM(pcmData, recordingSampleRate,
                     [self = shared_from_this(), stream](Result<LocalASRResult> asr) {
                       if (!asr) {
                         self->logger_.log(logSource, LogLevel::error,
                                           "ASR failed: " + asr.error().description);
                         stream->completion(fail(asr.error()));
                         return;
                       }
                       stream->asr = std::move(*asr);
                       const std::string& transcript = stream->asr.transcript;
                       self->logger_.log(logSource, LogLevel::info,
                                         "ASR done: \"" + text::prefix(transcript, 60) + "\"");
                       if (transcript.empty()) {
                         TranscriptionResult nothing;
                         nothing.mode = stream->requestedMode;
                         stream->completion(std::move(nothing));
                         return;
                       }
                       self->processTranscriptStreamingFast(stream);
                     });
}

std::string TranscriptionService::timezone() const {
  const std::string stored = settings_.string(UserPreferences::userTimezoneKey);
  return stored.empty() ? dates::systemTimeZone() : stored;
}

std::optional<User> TranscriptionService::signedInUser() const {
  return sources_.signedInUser ? sources_.signedInUser() : std::nullopt;
}

/// The keys about the user that the agent and the backend's log share.
void TranscriptionService::addUser(Json& body, const std::optional<User>& user) const {
  if (user) body.set("user_email", user->email);
  for (const auto& [key, setting] :
       {std::pair{"user_name", UserPreferences::userNameKey},
        std::pair{"user_location", UserPreferences::userLocationKey}}) {
    const std::string value = settings_.string(setting);
    if (!value.empty()) body.set(key, value);
  }
}

Json TranscriptionService::buildStaticRequestBody(const Stream& stream) {
  const CapturedContext& context = stream.context;
  const std::string device = deviceId_.deviceId();
  const auto user = signedInUser();
  Json body = Json::object({{"mode", stream.requestedMode},
                            {"user_id", user ? user->localId : device},
                            {"device_id", device},
                            {"user_timezone", timezone()},
                            {"stream", true},
                            {"app_context", stream.contextJson}});
  const auto setText = [&](const char* key, const std::string& value) {
    if (!value.empty()) body.set(key, value);
  };
  if (context.audioDurationMs >= 1) body.set("audio_duration_ms", context.audioDurationMs);
  addUser(body, user);
  setText("user_personality", settings_.string(UserPreferences::userPersonalityKey));
  auto style = sources_.archetypeStylePrompt ? sources_.archetypeStylePrompt() : std::nullopt;
  if (!style) {
    if (const auto archetype = preferences_.userArchetype()) {
      style = archetype->stringAt("style_prompt");
    }
  }
  if (style) body.set("user_archetype_style", *style);
  if (sources_.voiceProfileSummary) {
    setText("voice_profile_summary", sources_.voiceProfileSummary());
  }
  const auto prompts = preferences_.customPrompts();
  if (!prompts.empty()) body.set("custom_prompts", Json::fromMap(prompts));
  body.set("custom_temperatures", Json::fromMap(preferences_.modeTemperatures()));
  setModelFields(body, settings_, geminiKey_);
  if (!context.localFiles.empty()) body.set("local_files", localFiles(context));
  if (!context.workspaceFiles.empty()) {
    body.set("workspace_files", Json::arrayOf(context.workspaceFiles));
  }
  if (context.workspacePath) body.set("workspace_path", *context.workspacePath);
  return body;
}

Json TranscriptionService::localFiles(const CapturedContext& context) {
  Json out = Json::array();
  for (const LocalFileContext& file : context.localFiles) out.push(file.toJson());
  return out;
}

void TranscriptionService::processTranscriptStreamingFast(const std::shared_ptr<Stream>& stream) {
  logger_.log(logSource, LogLevel::info, "Firing LLM stream (fast path)...");
  const LocalASRResult& asr = stream->asr;
  Json& body = stream->body;
  body.set("transcript", asr.transcript);
  if (asr.metadata) body.set("voice_metadata", asr.metadata->toJson());
  if (asr.metadataProbs) body.set("voice_metadata_probs", probabilities(asr));
  if (!asr.entities.empty()) {
    Json entities = Json::array();
    for (const VoiceEntity& entity : asr.entities) entities.push(entity.toJson());
    body.set("entities", std::move(entities));
  }
  stream->request.body = body.dump();
  stream->reader = std::make_unique<AgentEventReader>(stream->requestedMode, eventHandlers(stream));

  auto client = std::make_shared<SSEClient>(http_);
  {
    std::lock_guard lock(mutex_);
    sseClient_ = client;
  }
  client->stream(
      std::move(stream->request),
      [stream](std::string_view event) { stream->reader->receive(event); },
      [self = shared_from_this(), stream](const std::optional<Error>& error) {
        self->finishStream(stream, error);
      },
      [stream](int status) { stream->status = status; });
}

AgentEventHandlers TranscriptionService::eventHandlers(const std::shared_ptr<Stream>& stream) {
  const auto weak = weak_from_this();
  // Side requests act on the application, so they go to the main queue; text does not wait for it.
  const auto onMain = [weak](std::function<void(TranscriptionService&)> job) {
    if (const auto self = weak.lock()) {
      self->dispatch_.mainQueue()->post([weak, job = std::move(job)] {
        if (const auto alive = weak.lock()) job(*alive);
      });
    }
  };
  const auto log = [weak](LogLevel level, const std::string& message) {
    if (const auto self = weak.lock()) self->logger_.log(logSource, level, message);
  };
  AgentEventHandlers handlers;
  handlers.onChunk = stream->onStreamChunk;
  handlers.onAudio = [onMain, log](Bytes audio) {
    log(LogLevel::info, "TTS audio received (" + std::to_string(audio.size()) + " bytes)");
    onMain([audio = std::move(audio)](TranscriptionService& self) {
      if (!self.sources_.playAudio) return;
      self.sources_.playAudio(audio, [weak = self.weak_from_this()] {
        if (const auto alive = weak.lock()) {
          alive->logger_.log(logSource, LogLevel::debug, "TTS playback complete");
        }
      });
    });
  };
  handlers.onResearchStarted = [onMain, log](const std::string& id) {
    log(LogLevel::info, "🔬 Background research started: " + id);
    onMain([id](TranscriptionService& self) {
      self.notifications_.post("BackgroundResearchStarted", Json::object({{"research_id", id}}));
    });
  };
  handlers.onOutputRoute = [onMain, log](const OutputRoute& route) {
    log(LogLevel::debug, "📡 Output route: " + route.channel +
                             " (suppress_paste: " + yesNo(route.suppressPaste) +
                             ", auto_speak: " + yesNo(route.autoSpeak) + ")");
    onMain([route](TranscriptionService& self) {
      self.notifications_.post("OutputRouteReceived", route.toJson());
    });
  };
  handlers.onAction = [onMain, log](const Json& action) {
    log(LogLevel::info, "🎯 Action received: " + action.stringAt("type", "unknown"));
    onMain([action](TranscriptionService& self) {
      self.notifications_.post("ExecuteAction", action);
    });
  };
  return handlers;
}

void TranscriptionService::finishStream(const std::shared_ptr<Stream>& stream,
                                        const std::optional<Error>& error) {
  const AgentEventReader& reader = *stream->reader;
  std::optional<Error> failure = error;
  // The body of an error status is read like any other; one that says nothing at all is a failure
  // of the agent and not an empty answer.
  if (!failure && stream->status >= 400 && !reader.heardAnything()) {
    failure = Error{"TranscriptionService", 2,
                    "The agent answered with status " + std::to_string(stream->status)};
  }
  if (failure) {
    logger_.log(logSource, LogLevel::error, "Streaming error: " + failure->description);
    stream->completion(fail(*failure));
    return;
  }
  logger_.log(
      logSource, LogLevel::info,
      "Streaming complete: " + std::to_string(text::characterCount(reader.fullText())) + " chars");
  if (stream->asr.metadataProbs) updateVoiceProfileInBackground(*stream);
  maybeRefreshProfilesInBackground();
  logTranscriptionToCloudBackend(*stream);
  TranscriptionResult result;
  result.text = reader.fullText();
  result.mode = reader.mode();
  result.autoDetected = reader.autoDetected();
  result.transcript = stream->asr.transcript;
  stream->completion(std::move(result));
}

void TranscriptionService::postToBackend(const std::string& path, const Json& body,
                                         const std::string& what, const std::string& source,
                                         const std::string& failureLabel) {
  HttpRequest request = jsonPost(endpoints_.backend + path, body.dump());
  if (!isHttpUrl(request.url)) {
    logger_.print("⚠️ Invalid backend URL for " + what);
    return;
  }
  request.setHeader("X-Device-Id", deviceId_.deviceId());
  request.timeout = backendTimeout;
  backendReports_.enter();
  backendSession_->data(
      std::move(request), [weak = weak_from_this(), source, failureLabel,
                           reports = backendReports_](const Result<HttpResponse>& answer) mutable {
        reports.leave();
        const auto self = weak.lock();
        if (!answer && self) {
          self->logger_.log(source, LogLevel::warning, failureLabel + answer.error().description);
        }
      });
}

void TranscriptionService::updateVoiceProfileInBackground(const Stream& stream) {
  postToBackend("/update-voice-profile",
                Json::object({{"user_id", deviceId_.deviceId()},
                              {"transcript", stream.asr.transcript},
                              {"processed_text", stream.reader->fullText()},
                              {"mode", stream.reader->mode()},
                              {"voice_metadata_probs", probabilities(stream.asr)}}),
                "voice profile update", "VoiceProfile", "Update failed: ");
}

void TranscriptionService::logTranscriptionToCloudBackend(const Stream& stream) {
  const std::string device = deviceId_.deviceId();
  const AgentEventReader& reader = *stream.reader;
  Json body = Json::object({{"user_id", device},
                            {"device_id", device},
                            {"mode", stream.requestedMode},
                            {"detected_mode", reader.mode()},
                            {"auto_detected", reader.autoDetected()},
                            {"transcript", stream.asr.transcript},
                            {"processed_text", reader.fullText()},
                            {"success", true},
                            {"app_context", stream.contextJson}});
  if (stream.context.audioDurationMs >= 1) {
    body.set("audio_duration_ms", stream.context.audioDurationMs);
  }
  addUser(body, signedInUser());
  body.set("user_timezone", timezone());
  if (!stream.context.localFiles.empty()) body.set("local_files", localFiles(stream.context));
  if (stream.asr.metadata) body.set("voice_metadata", stream.asr.metadata->toJson());
  postToBackend("/log-transcription", body, "transcription logging", logSource,
                "History log failed: ");
}

void TranscriptionService::maybeRefreshProfilesInBackground() {
  {
    // The counter goes on during a refresh: the first stream to end after it may start the next
    // one.
    std::lock_guard lock(mutex_);
    ++requestsSinceRefresh_;
    if (requestsSinceRefresh_ < refreshInterval || isRefreshing_) return;
    isRefreshing_ = true;
    requestsSinceRefresh_ = 0;
  }
  const std::string user = deviceId_.deviceId();
  const std::string summary =
      sources_.voiceProfileSummary ? sources_.voiceProfileSummary() : std::string();
  logger_.log(learningSource, LogLevel::info,
              "Triggering periodic profile refresh (every 15 requests)");
  const auto report = [weak = weak_from_this()](const Result<std::string>& result,
                                                const std::string& done, const std::string& failed,
                                                size_t shown) {
    const auto self = weak.lock();
    if (!self) return;
    self->logger_.log(
        learningSource, result ? LogLevel::info : LogLevel::warning,
        result ? done + text::prefix(*result, shown) : failed + result.error().description);
  };
  if (sources_.refreshPersonality) {
    sources_.refreshPersonality(user, summary, [report](const Result<std::string>& personality) {
      report(personality, "Personality refreshed: ", "Personality refresh failed: ", 60);
    });
  }
  const auto ended = [weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      std::lock_guard lock(self->mutex_);
      self->isRefreshing_ = false;
    }
  };
  if (!sources_.classifyArchetype) {
    ended();
    return;
  }
  sources_.classifyArchetype(user, [report, ended](const Result<std::string>& archetype) {
    report(archetype, "Archetype reclassified: ", "Archetype reclassification failed: ", 200);
    ended();
  });
}

}  // namespace kestrin
