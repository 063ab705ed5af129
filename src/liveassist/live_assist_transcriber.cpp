#include "liveassist/live_assist_transcriber.h"

#include <utility>

#include "liveassist/behavioral_profile_manager.h"
#include "liveassist/segment_answer.h"
#include "platform/text/text.h"
#include "services/local/asr_request.h"

namespace kestrin {
namespace {

constexpr const char* source = "ASR";
constexpr size_t shownCharacters = 60;

std::string sizeText(size_t bytes) {
  return text::fixed(double(bytes) / segmentBytesPerSecond, 1) + "s (" + std::to_string(bytes) +
         " bytes)";
}

}  // namespace

LiveAssistTranscriber::LiveAssistTranscriber(Dispatch& dispatch, Http& http, Random& random,
                                             Logger& logger, BehavioralProfileManager& profiles,
                                             const Endpoints& endpoints)
    : dispatch_(dispatch),
      random_(random),
      logger_(logger),
      profiles_(profiles),
      asrBaseURL_(endpoints.asr),
      session_(http.makeSession({})) {}

void LiveAssistTranscriber::transcribe(const Bytes& data, LAAudioChannel channel) {
  if (data.empty()) return;
  logger_.log(source, LogLevel::debug, rawValue(channel) + " segment: " + sizeText(data.size()));
  session_->data(asrPcmRequest(asrBaseURL_, data, 16000, 10, random_.uuid()),
                 [weak = weak_from_this(), channel,
                  bytes = data.size()](const Result<HttpResponse>& response) {
                   if (const auto self = weak.lock()) self->handle(response, channel, bytes);
                 });
}

void LiveAssistTranscriber::handle(const Result<HttpResponse>& response, LAAudioChannel channel,
                                   size_t bytes) {
  if (!response) {
    const std::string& description = response.error().description;
    logger_.log(source, LogLevel::error, rawValue(channel) + " error: " + description);
    return fail(channel, description);
  }
  const auto answer = parseSegmentAnswer(response->body);
  if (!answer) return fail(channel, answer.error().description);
  logger_.log(
      source, LogLevel::info,
      "[" + rawValue(channel) + "] \"" + text::prefix(answer->text, shownCharacters) + "...\"");
  LATranscriptionMetadata metadata{double(bytes) / segmentBytesPerSecond, answer->gender,
                                   answer->age, answer->emotion, answer->intent};
  {
    const std::lock_guard lock(mutex_);
    auto& speaker = channel == LAAudioChannel::microphone ? micSpeaker_ : systemSpeaker_;
    const auto heard = speaker.updateSpeaker(answer->gender);
    metadata.speakerNumber = heard.speakerNumber;
    metadata.speakerChanged = heard.speakerChanged;
  }
  feedProfile(*answer, channel);
  tell([this, text = answer->text, channel, metadata](LATranscriberDelegate& receiver) {
    receiver.didTranscribe(*this, text, channel, metadata);
  });
}

void LiveAssistTranscriber::feedProfile(const SegmentAnswer& answer, LAAudioChannel channel) {
  if (!answer.emotionProbs.empty() || !answer.intentProbs.empty()) {
    profiles_.update(channel, answer.emotionProbs, answer.intentProbs);
  } else if (answer.emotion && answer.intent) {
    profiles_.updateSimple(channel, *answer.emotion, *answer.intent);
  }
}

void LiveAssistTranscriber::fail(LAAudioChannel channel, const std::string& error) {
  tell([this, channel, error](LATranscriberDelegate& receiver) {
    receiver.didFailChannel(*this, channel, error);
  });
}

void LiveAssistTranscriber::tell(std::function<void(LATranscriberDelegate&)> what) {
  dispatch_.mainQueue()->post([weak = weak_from_this(), what = std::move(what)] {
    const auto self = weak.lock();
    const auto receiver = self ? self->delegate.lock() : nullptr;
    if (receiver) what(*receiver);
  });
}

int LiveAssistTranscriber::speakerNumber(LAAudioChannel channel) const {
  const std::lock_guard lock(mutex_);
  return channel == LAAudioChannel::microphone ? micSpeaker_.number() : systemSpeaker_.number();
}

}  // namespace kestrin
