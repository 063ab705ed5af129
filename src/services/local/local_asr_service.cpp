#include "services/local/local_asr_service.h"

#include "platform/text/text.h"
#include "services/local/asr_request.h"

namespace kestrin {
namespace {

constexpr const char* domain = "LocalASRService";
constexpr int dictationTopK = 5;

std::string secondsText(Duration elapsed) {
  return text::fixed(std::chrono::duration<double>(elapsed).count(), 2);
}

}  // namespace

LocalASRService::LocalASRService(Dispatch& dispatch, Http& http, Files& files, Random& random,
                                 Logger& logger, const Endpoints& endpoints)
    : dispatch_(dispatch),
      files_(files),
      random_(random),
      logger_(logger),
      baseUrl_(endpoints.asr),
      session_(http.makeSession({})) {}

void LocalASRService::transcribe(const std::string& audioPath, Completion completion) {
  if (!isHttpUrl(baseUrl_ + "/transcribe")) {
    completion(fail(domain, 1, "Invalid ASR URL"));
    return;
  }
  logger_.print("🎤 Sending audio to local ASR: " + baseUrl_ + "/transcribe");
  auto content = files_.read(audioPath);
  if (!content) {
    completion(fail(domain, 2, "Failed to read audio file"));
    return;
  }
  logger_.print("📊 Audio size: " + std::to_string(content->size()) + " bytes");
  send(asrFileRequest(baseUrl_, *content, random_.uuid()),
       "❌ Local ASR error: ", std::move(completion));
}

void LocalASRService::transcribePCM(const Bytes& pcmData, int sampleRate, Completion completion) {
  const auto failLogged = [&](const char* description) {
    logger_.log("Transcription", LogLevel::error, std::string("ASR failed: ") + description);
    completion(fail(domain, 1, description));
  };
  if (pcmData.empty()) return failLogged("No audio data");
  if (!isHttpUrl(baseUrl_ + "/transcribe/pcm")) return failLogged("Invalid ASR URL");
  logger_.print("🎤 Sending raw PCM to local ASR: " + std::to_string(pcmData.size()) + " bytes");
  send(asrPcmRequest(baseUrl_, pcmData, sampleRate, dictationTopK, random_.uuid()),
       "❌ Local ASR PCM error: ", std::move(completion));
}

void LocalASRService::send(HttpRequest request, const std::string& errorLabel,
                           Completion completion) {
  const SteadyTime began = dispatch_.clock().steadyNow();
  session_->data(std::move(request), [this, began, errorLabel, completion = std::move(completion)](
                                         const Result<HttpResponse>& response) {
    const Duration elapsed = dispatch_.clock().steadyNow() - began;
    if (!response) {
      logger_.print(errorLabel + response.error().description);
      completion(fail(response.error()));
      return;
    }
    if (response->body.empty()) {
      completion(fail(domain, 3, "No data received from ASR"));
      return;
    }
    auto parsed = parseASRResponse(response->body);
    if (!parsed) {
      if (parsed.error().domain != domain)
        logger_.print("❌ JSON parse error: " + parsed.error().description);
      completion(std::move(parsed));
      return;
    }
    logger_.print("✅ Local ASR complete in " + secondsText(elapsed) + "s: \"" +
                  text::prefix(parsed->transcript, 50) + "...\"");
    if (parsed->metadata) {
      logger_.print("🎭 Metadata: " + parsed->metadata->emotion.value_or("?") + " / " +
                    parsed->metadata->intent.value_or("?"));
    }
    completion(std::move(parsed));
  });
}

}  // namespace kestrin
