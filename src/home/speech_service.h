#pragma once

#include <functional>
#include <string>

#include "diagnostics/logger.h"
#include "dictation/audio_player_service.h"
#include "home/ai_persona_service.h"
#include "home/home_agent.h"

namespace kestrin {

/// Speaks texts with the voice of the persona, which the agent makes. When a sound has come to its
/// end the status returns to its resting text. Main queue only; must be destroyed there.
class SpeechService {
 public:
  static constexpr std::chrono::seconds timeout{90};
  static constexpr const char* failedStatus = "❌ TTS failed - is Docker running?";

  /// `restingText`: what the status says while nothing goes on.
  SpeechService(HomeAgent& agent, AudioPlayerService& player, const AIPersonaService& personas,
                Logger& logger, std::string restingText)
      : agent_(agent),
        player_(player),
        personas_(personas),
        logger_(logger),
        restingText_(std::move(restingText)) {}

  /// Bytes of sound, or none.
  void ttsToData(const std::string& text, std::function<void(Bytes)> completion);
  /// `completion` (may be empty) gets whether it was spoken to its end.
  void speakText(const std::string& text, std::function<void(bool)> completion = {});
  /// `completion` may be empty.
  void play(Bytes audio, std::function<void()> completion = {});
  const std::string& restingText() const { return restingText_; }

  /// A line for the status; `failed`: in red.
  std::function<void(const std::string& text, bool failed)> onStatus;

 private:
  void request(const std::string& text, std::function<void(const Result<Json>&)> completion);
  void status(const std::string& text, bool failed = false) {
    if (onStatus) onStatus(text, failed);
  }

  HomeAgent& agent_;
  AudioPlayerService& player_;
  const AIPersonaService& personas_;
  Logger& logger_;
  const std::string restingText_;
  Lifetime lifetime_;
};

}  // namespace kestrin
