#include "home/speech_service.h"

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t shownText = 50;  // characters

/// The sound in an answer that says it succeeded.
Bytes audioIn(const Json& answer) {
  std::string audio;
  const bool whole = answer.boolAt("success").value_or(false) &&
                     text::base64Decode(answer.stringAt("audio", ""), audio);
  return whole ? audio : Bytes();
}

}  // namespace

void SpeechService::request(const std::string& text,
                            std::function<void(const Result<Json>&)> completion) {
  agent_.post("/tts",
              Json::object({{"text", text}, {"voice", personas_.currentPersona().voiceStyle}}),
              timeout, std::move(completion));
}

void SpeechService::ttsToData(const std::string& text, std::function<void(Bytes)> completion) {
  request(text, [completion = std::move(completion)](const Result<Json>& answer) {
    completion(answer ? audioIn(*answer) : Bytes());
  });
}

void SpeechService::play(Bytes audio, std::function<void()> completion) {
  player_.play(std::move(audio), lifetime_.guard([this, completion = std::move(completion)] {
    status(restingText_);
    if (completion) completion();
  }));
}

void SpeechService::speakText(const std::string& text, std::function<void(bool)> completion) {
  logger_.print("🔊 Sending TTS request to: " + agent_.baseUrl() +
                "/tts with text: " + text::prefix(text, shownText) + "...");
  request(text, [this, completion = std::move(completion)](const Result<Json>& answer) {
    const auto end = [&](bool spoken) {
      if (completion) completion(spoken);
    };
    const auto failed = [&](const std::string& line) {
      logger_.print(line);
      status(failedStatus, true);
      end(false);
    };
    if (!answer) {
      return failed(answer.error().domain == "HTTP"
                        ? "❌ TTS request failed: " + answer.error().description
                        : "❌ Could not parse TTS response as JSON");
    }
    Bytes audio = audioIn(*answer);
    if (audio.empty()) {
      const auto error = answer->stringAt("error");
      return failed(error ? "❌ TTS " + *error
                          : "❌ Unexpected TTS response format\n" + answer->dump());
    }
    logger_.print("🔊 Received TTS audio: " + std::to_string(audio.size()) + " bytes");
    status("🔊 Speaking...");
    play(std::move(audio), [completion] {
      if (completion) completion(true);
    });
  });
}

}  // namespace kestrin
