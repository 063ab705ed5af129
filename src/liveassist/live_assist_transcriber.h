#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "diagnostics/logger.h"
#include "liveassist/audio_channel.h"
#include "liveassist/speaker_tracker.h"
#include "liveassist/transcription_metadata.h"
#include "platform/files.h"
#include "platform/http.h"
#include "services/local/endpoints.h"

namespace kestrin {

class BehavioralProfileManager;
class LiveAssistTranscriber;
struct SegmentAnswer;

/// Called on the main queue.
class LATranscriberDelegate {
 public:
  virtual ~LATranscriberDelegate() = default;
  virtual void didTranscribe(LiveAssistTranscriber& transcriber, const std::string& text,
                             LAAudioChannel channel, const LATranscriptionMetadata& metadata) = 0;
  /// "empty": the segment held no usable speech, which is no error and is not shown.
  virtual void didFailChannel(LiveAssistTranscriber& transcriber, LAAudioChannel channel,
                              const std::string& error) = 0;
};

/// Turns segments of PCM into cleaned lines with a speaker number and labels, through the local
/// recogniser, and feeds the behavioral profile. One for each session: both channels begin with
/// speaker 1. Make it with `std::make_shared`. Thread-safe.
class LiveAssistTranscriber : public std::enable_shared_from_this<LiveAssistTranscriber> {
 public:
  LiveAssistTranscriber(Dispatch& dispatch, Http& http, Random& random, Logger& logger,
                        BehavioralProfileManager& profiles, const Endpoints& endpoints);

  /// Set it before the first segment; read on the main queue.
  std::weak_ptr<LATranscriberDelegate> delegate;

  /// Returns at once; exactly one of the delegate's operations follows. Empty data: none does.
  void transcribe(const Bytes& data, LAAudioChannel channel);

  int speakerNumber(LAAudioChannel channel) const;

 private:
  void handle(const Result<HttpResponse>& response, LAAudioChannel channel, size_t bytes);
  void feedProfile(const SegmentAnswer& answer, LAAudioChannel channel);
  void fail(LAAudioChannel channel, const std::string& error);
  /// On the main queue, while the delegate lives.
  void tell(std::function<void(LATranscriberDelegate&)> what);

  Dispatch& dispatch_;
  Random& random_;
  Logger& logger_;
  BehavioralProfileManager& profiles_;
  const std::string asrBaseURL_;
  const std::shared_ptr<HttpSession> session_;
  mutable std::mutex mutex_;
  SpeakerTracker micSpeaker_, systemSpeaker_;
};

}  // namespace kestrin
