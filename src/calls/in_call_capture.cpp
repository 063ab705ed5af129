#include "calls/in_call_capture.h"

#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "Calls";

}  // namespace

class InCallCapture::Events final : public LAAudioEngineDelegate, public LATranscriberDelegate {
 public:
  explicit Events(InCallCapture& capture) : capture_(capture) {}

  void didSegmentAudio(LiveAssistAudioEngine&, Bytes pcm, LAAudioChannel channel) override {
    if (capture_.inCallTranscriber_) capture_.inCallTranscriber_->transcribe(pcm, channel);
  }
  void didStartCapture(LiveAssistAudioEngine&, LAAudioChannel channel) override {
    capture_.services_.logger.log(source, LogLevel::info,
                                  "In-call capture started: " + rawValue(channel));
  }
  void didTranscribe(LiveAssistTranscriber&, const std::string& text, LAAudioChannel channel,
                     const LATranscriptionMetadata& metadata) override {
    // What comes after the end belongs to no call.
    if (!capture_.isCapturing()) return;
    completed(channel);
    const std::string line = text::trim(text);
    if (line.empty() || line == ".") return;
    capture_.onLine_(channel == LAAudioChannel::microphone ? "You" : "Other", line);
    const std::string emotion = metadata.emotion.value_or(""),
                      intent = metadata.intent.value_or("");
    if (!emotion.empty() && !intent.empty())
      capture_.services_.profiles.updateSimple(channel, emotion, intent);
  }
  void didFailChannel(LiveAssistTranscriber&, LAAudioChannel channel,
                      const std::string& error) override {
    completed(channel);
    capture_.services_.logger.log(source, LogLevel::error,
                                  "In-call ASR error (" + rawValue(channel) + ") " + error);
  }

 private:
  void completed(LAAudioChannel channel) {
    if (capture_.inCallAudioEngine_)
      capture_.inCallAudioEngine_->markTranscriptionComplete(channel);
  }
  InCallCapture& capture_;
};

InCallCapture::InCallCapture(Services services,
                             std::function<void(const std::string&, const std::string&)> onLine)
    : services_(std::move(services)),
      onLine_(std::move(onLine)),
      events_(std::make_shared<Events>(*this)) {}

InCallCapture::~InCallCapture() { stopInCallAudioCapture(); }

void InCallCapture::startInCallAudioCapture() {
  inCallTranscriber_ = std::make_shared<LiveAssistTranscriber>(
      services_.dispatch, services_.http, services_.random, services_.logger, services_.profiles,
      services_.endpoints);
  inCallTranscriber_->delegate = events_;
  inCallAudioEngine_ = std::make_unique<LiveAssistAudioEngine>(services_.dispatch, services_.audio,
                                                               services_.logger);
  inCallAudioEngine_->delegate = events_;
  inCallAudioEngine_->startCapture(lifetime_.guard([this](const Status& started) {
    if (started) {
      services_.logger.log(source, LogLevel::info, "In-call audio capture started");
    } else {
      services_.logger.log(source, LogLevel::error,
                           "In-call audio capture failed: " + started.error().description);
    }
  }));
}

void InCallCapture::stopInCallAudioCapture() {
  if (!inCallAudioEngine_) return;
  inCallAudioEngine_->stopCapture();
  inCallAudioEngine_.reset();
  inCallTranscriber_.reset();
  services_.logger.log(source, LogLevel::info, "In-call audio capture stopped");
}

}  // namespace kestrin
