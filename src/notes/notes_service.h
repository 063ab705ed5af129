#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "identity/device_id_manager.h"
#include "identity/gemini_key_manager.h"
#include "notes/local_cache.h"
#include "notes/voice_note.h"
#include "platform/dispatch/dispatch.h"
#include "platform/http.h"
#include "services/local/agent_client.h"
#include "services/local/local_asr_service.h"
#include "usermodel/user_preferences.h"

namespace kestrin {

/// Makes voice notes from recordings and keeps them at the backend. The user is this device. Keeps
/// no state; thread-safe. Completions run once, on the main queue.
///
/// Errors: domain "NotesService" (ErrorCode), or those of the recogniser and of the network,
/// unchanged. A note that the agent cannot put into form is made of the transcript as it is; only
/// the recogniser and the backend can make it fail.
class NotesService {
 public:
  enum ErrorCode { noAudio = 1, noSpeech = 2, noData = 3, refused = 4, invalidUrl = 5 };
  static constexpr std::chrono::seconds writeTimeout{15};
  static constexpr std::chrono::seconds listTimeout{10};

  /// All of these must outlive every background job.
  struct Services {
    Dispatch& dispatch;
    Http& http;
    SettingsStore& settings;
    Logger& logger;
    LocalASRService& asr;
    AgentClient& agent;
    LocalCache& cache;
    DeviceIdManager& deviceId;
    GeminiKeyManager& geminiKey;
    UserPreferences& preferences;
  };
  NotesService(const Services& services, const Endpoints& endpoints);

  /// The whole chain over a recording of 16 kHz mono 16-bit PCM: recogniser, agent, backend.
  /// `onTranscript` (may be empty) gets what was understood, on the main queue, before anything
  /// else can fail.
  void createNoteFromPCM(Bytes pcmData, std::function<void(const Result<VoiceNote>&)> completion,
                         std::function<void(const std::string&)> onTranscript = {});
  /// In the order of the backend, which the cache then keeps. Nothing on failure: what is in the
  /// cache then says what there was.
  void fetchNotes(
      std::function<void(const std::vector<VoiceNote>&, const Status& outcome)> completion);
  void updateNote(const std::string& noteId, const std::string& content,
                  const std::optional<std::string>& transcript,
                  std::function<void(const Result<VoiceNote>&)> completion);
  /// Off the main queue, since the cache is a file.
  void cachedNotes(std::function<void(const std::vector<VoiceNote>&)> completion);

 private:
  struct Making;
  using MakingRef = std::shared_ptr<Making>;

  void structure(const MakingRef& making);
  void save(const MakingRef& making);
  void answered(const MakingRef& making, const Result<HttpResponse>& response);
  Json userBody();
  template <class... T>
  std::function<void(const T&...)> onMain(std::function<void(const T&...)> completion) const;

  const Services services_;
  const std::string backend_;
  std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin
