#include "calls/call_transcription.h"

#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t leastSentence = 11, longestSummary = 150, loggedTranscript = 100;

}  // namespace

std::string generateSimpleSummary(const std::string& transcript, const std::string& callerName) {
  if (transcript.empty()) return "Call with " + callerName;
  std::string sentence;
  for (const char c : transcript) {
    if (c != '.' && c != '!' && c != '?') {
      sentence += c;
      continue;
    }
    sentence = text::trim(sentence);
    if (text::characterCount(sentence) >= leastSentence)
      return text::prefix(sentence, longestSummary);
    sentence.clear();
  }
  sentence = text::trim(sentence);
  return text::prefix(text::characterCount(sentence) >= leastSentence ? sentence : transcript,
                      longestSummary);
}

CallTranscription::CallTranscription(Dispatch& dispatch, Http& http, LocalASRService& asr,
                                     Logger& logger, std::string backend)
    : dispatch_(dispatch),
      asr_(asr),
      logger_(logger),
      backend_(std::move(backend)),
      session_(http.makeSession({})) {}

void CallTranscription::transcribeCallRecording(const std::string& audioURL, const Call& call,
                                                std::function<void()> onSaved) {
  const auto transcribed = [&logger = logger_, &dispatch = dispatch_, session = session_,
                            address = backend_ + "/calls/transcript", audioURL, call,
                            onSaved = std::move(onSaved)](const Result<LocalASRResult>& result) {
    if (!result) {
      return logger.print("❌ Call transcription failed: " + result.error().description);
    }
    const std::string& transcript = result->transcript;
    logger.print("📞 Call transcribed: " + text::prefix(transcript, loggedTranscript));
    const Json body = Json::object({{"roomName", call.roomName},
                                    {"callerName", call.callerName},
                                    {"duration", static_cast<int64_t>(call.duration)},
                                    {"transcript", transcript},
                                    {"summary", generateSimpleSummary(transcript, call.callerName)},
                                    {"audioPath", audioURL},
                                    {"createdAt", dates::iso8601(dispatch.clock().wallNow())},
                                    {"userId", call.userId}});
    session->data(jsonPost(address, body.dump()), [&logger, main = dispatch.mainQueue(),
                                                   onSaved](const Result<HttpResponse>& response) {
      if (!response || response->status >= 300) {
        return logger.print("❌ Call transcript not saved: " +
                            (response ? "status " + std::to_string(response->status)
                                      : response.error().description));
      }
      logger.print("✅ Call transcript saved to Firestore");
      if (onSaved) main->post(onSaved);
    });
  };
  // The file is read at once.
  dispatch_.globalQueue()->post(
      [&asr = asr_, audioURL, transcribed] { asr.transcribe(audioURL, transcribed); });
}

}  // namespace kestrin
