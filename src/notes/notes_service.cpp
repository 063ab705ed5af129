#include "notes/notes_service.h"

#include <utility>

#include "platform/audio/wav.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* domain = "NotesService";
constexpr size_t largestAnswer = 64u << 20;

/// The note of an answer that says `success`, else its own error or `otherwise`.
Result<VoiceNote> noteIn(const Result<HttpResponse>& response, const char* otherwise) {
  if (!response) return fail(response.error());
  if (response->body.empty()) return fail(domain, NotesService::noData, "No data received");
  const auto answer = Json::parse(response->body);
  const Json* record =
      answer && answer->boolAt("success").value_or(false) ? answer->objectAt("note") : nullptr;
  if (record) {
    if (auto note = VoiceNote::fromJson(*record)) return std::move(*note);
  }
  const auto why = answer ? answer->stringAt("error", "") : "";
  return fail(domain, NotesService::refused, why.empty() ? otherwise : why);
}

}  // namespace

struct NotesService::Making {
  std::string transcript;
  std::optional<VoiceMetadataProbs> probabilities;
  std::string content;
  std::function<void(const Result<VoiceNote>&)> completion;

  void addProbabilities(Json& body) const {
    if (probabilities) body.set("voice_metadata_probs", probabilities->toJson());
  }
};

NotesService::NotesService(const Services& services, const Endpoints& endpoints)
    : services_(services),
      backend_(endpoints.backend),
      session_(services.http.makeSession({.maximumBodyBytes = largestAnswer})) {}

template <class... T>
std::function<void(const T&...)> NotesService::onMain(
    std::function<void(const T&...)> completion) const {
  return [main = services_.dispatch.mainQueue(),
          completion = std::move(completion)](const T&... values) {
    if (completion) main->post([completion, values...] { completion(values...); });
  };
}

/// Reads the secret store and the device's id: off the main queue.
Json NotesService::userBody() {
  return Json::object({{"user_id", services_.deviceId.deviceId()},
                       {"user_name", services_.settings.string(UserPreferences::userNameKey)}});
}

void NotesService::createNoteFromPCM(Bytes pcmData,
                                     std::function<void(const Result<VoiceNote>&)> completion,
                                     std::function<void(const std::string&)> onTranscript) {
  Logger& logger = services_.logger;
  const auto making = std::make_shared<Making>();
  making->completion = onMain(std::move(completion));
  if (pcmData.empty()) return making->completion(fail(domain, noAudio, "No audio data recorded"));
  logger.print("📝 Creating note: Step 1 - Local ASR transcription (PCM: " +
               std::to_string(pcmData.size()) + " bytes)");
  services_.asr.transcribePCM(
      pcmData, wav::speechSampleRate,
      [this, &logger, making,
       understood = onMain(std::move(onTranscript))](const Result<LocalASRResult>& result) {
        if (!result) {
          logger.print("❌ ASR failed: " + result.error().description);
          return making->completion(fail(result.error()));
        }
        if (text::trim(result->transcript).empty()) {
          return making->completion(fail(domain, noSpeech, "No speech detected"));
        }
        logger.print("📝 ASR transcript: " + result->transcript);
        making->transcript = result->transcript;
        making->probabilities = result->metadataProbs;
        understood(making->transcript);
        services_.dispatch.globalQueue()->post([this, making] { structure(making); });
      });
}

void NotesService::structure(const MakingRef& making) {
  Logger& logger = services_.logger;
  Json body = userBody();
  body.set("transcript", making->transcript)
      .set("mode", "notes")
      .set("app_context", Json::object({{"app_name", "Kestrin"},
                                        {"window_title", "Notes"},
                                        {"has_active_text_input", false}}));
  if (const auto prompts = services_.preferences.customPrompts(); !prompts.empty()) {
    body.set("custom_prompts", Json::fromMap(prompts));
  }
  setModelFields(body, services_.settings, services_.geminiKey);
  making->addProbabilities(body);
  if (making->probabilities)
    logger.print("🎭 Including voice metadata with notes for profile update");
  logger.print("📝 Sending to agent: POST " + services_.agent.url());
  services_.agent.process(body, services_.dispatch.globalQueue(),
                          [this, &logger, making](const Result<AgentAnswer>& answer) {
                            if (!answer)
                              logger.print("❌ Agent request failed: " + answer.error().description);
                            const auto text = answer ? answer->text() : fail(answer.error());
                            if (answer && !text) logger.print("❌ " + text.error().description);
                            making->content =
                                text ? *text : structureRawTranscript(making->transcript);
                            logger.print("📝 Processed note: " + making->content);
                            save(making);
                          });
}

void NotesService::save(const MakingRef& making) {
  const std::string url = backend_ + "/notes/save";
  Json body = userBody();
  body.set("content", making->content).set("transcript", making->transcript);
  making->addProbabilities(body);
  services_.logger.print("📝 Saving note to backend: POST " + url);
  HttpRequest request = jsonPost(url, body.dump());
  request.timeout = writeTimeout;
  session_->data(std::move(request), [this, making](const Result<HttpResponse>& response) {
    answered(making, response);
  });
}

void NotesService::answered(const MakingRef& making, const Result<HttpResponse>& response) {
  Logger& logger = services_.logger;
  const auto note = noteIn(response, "Failed to save note");
  if (!response) {
    logger.print("❌ Failed to save note: " + response.error().description);
  } else if (note) {
    logger.print("✅ Note saved to Firebase: " + note->id);
    services_.settings.countUp("totalNotes");
  } else {
    logger.print("❌ Backend error: " + note.error().description);
  }
  making->completion(note);
}

void NotesService::fetchNotes(
    std::function<void(const std::vector<VoiceNote>&, const Status&)> completion) {
  services_.dispatch.globalQueue()->post([this, done = onMain(std::move(completion))] {
    const std::string user = services_.deviceId.deviceId();
    if (user.empty()) return done({}, {});
    HttpRequest request;
    request.url = backend_ + "/notes/" + urlEncode(user);
    request.timeout = listTimeout;
    session_->data(std::move(request), [this, done](const Result<HttpResponse>& response) {
      Logger& logger = services_.logger;
      if (!response) {
        logger.print("❌ Failed to fetch notes: " + response.error().description);
        return done({}, fail(response.error()));
      }
      const auto answer = Json::parse(response->body);
      const auto list = answer && answer->boolAt("success").value_or(false)
                            ? answer->objectListAt("notes")
                            : std::nullopt;
      if (!list) {
        const std::string why =
            answer ? answer->stringAt("error", "no list of notes") : answer.error().description;
        logger.print("❌ Failed to parse notes: " + why);
        return done({}, fail(domain, refused, "The notes could not be read: " + why));
      }
      std::vector<VoiceNote> notes;
      for (const Json& each : *list) {
        if (auto note = VoiceNote::fromJson(each)) notes.push_back(std::move(*note));
      }
      services_.cache.saveNotes(notes);
      done(notes, {});
    });
  });
}

void NotesService::updateNote(const std::string& noteId, const std::string& content,
                              const std::optional<std::string>& transcript,
                              std::function<void(const Result<VoiceNote>&)> completion) {
  services_.dispatch.globalQueue()->post([this, noteId, content, transcript,
                                          done = onMain(std::move(completion))] {
    Logger& logger = services_.logger;
    Json body = userBody();
    body.set("content", content);
    if (transcript) body.set("transcript", *transcript);
    HttpRequest request = jsonPost(backend_ + "/notes/" + urlEncode(noteId), body.dump());
    request.method = "PUT";
    request.timeout = writeTimeout;
    if (!isHttpUrl(request.url)) return done(fail(domain, invalidUrl, "Invalid backend URL"));
    logger.print("📝 Updating note: PUT " + request.url);
    session_->data(std::move(request), [this, &logger, done](const Result<HttpResponse>& response) {
      if (response) {
        logger.print("📝 Note update response status: " + std::to_string(response->status));
      }
      const auto note = noteIn(response, "Failed to update note");
      if (note) services_.cache.replaceNote(*note);
      done(note);
    });
  });
}

void NotesService::cachedNotes(std::function<void(const std::vector<VoiceNote>&)> completion) {
  services_.dispatch.globalQueue()->post([this, done = onMain(std::move(completion))] {
    done(services_.cache.notes().value_or(std::vector<VoiceNote>{}));
  });
}

}  // namespace kestrin
