#pragma once

#include <functional>
#include <memory>
#include <string>

#include "diagnostics/logger.h"
#include "liveassist/behavioral_profile_manager.h"
#include "liveassist/live_assist_audio_engine.h"
#include "liveassist/live_assist_transcriber.h"

namespace kestrin {

/// Hears both sides of a call beside its page and gives what is said, line by line. Main queue
/// only; must be destroyed there.
class InCallCapture {
 public:
  struct Services {
    Dispatch& dispatch;
    Http& http;
    Audio& audio;
    Random& random;
    Logger& logger;
    BehavioralProfileManager& profiles;
    Endpoints endpoints;
  };
  /// `onLine` gets "You" or "Other", and what was said.
  InCallCapture(Services services,
                std::function<void(const std::string& label, const std::string& text)> onLine);
  ~InCallCapture();

  void startInCallAudioCapture();
  /// Without effect while nothing is captured.
  void stopInCallAudioCapture();
  bool isCapturing() const { return inCallAudioEngine_ != nullptr; }

 private:
  class Events;

  const Services services_;
  const std::function<void(const std::string&, const std::string&)> onLine_;
  std::shared_ptr<Events> events_;
  std::unique_ptr<LiveAssistAudioEngine> inCallAudioEngine_;
  std::shared_ptr<LiveAssistTranscriber> inCallTranscriber_;
  Lifetime lifetime_;
};

}  // namespace kestrin
