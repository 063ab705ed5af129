#pragma once

#include <functional>
#include <string>

#include "diagnostics/logger.h"
#include "dictation/audio_player_service.h"
#include "home/ai_persona_service.h"
#include "home/home_agent.h"

namespace kestrin {

/// Speaks texts with the voice of the persona, which the agent makes. Main queue only.
class SpeechService {
 public:
  static constexpr std::chrono::seconds timeout{90};
  static constexpr const char* failedStatus = "❌ TTS failed - is Docker running?";

  SpeechService(HomeAgent& agent, AudioPlayerService& player, const AIPersonaService& personas,
                Logger& logger)
      : agent_(agent), player_(player), personas_(personas), logger_(logger) {}

  /// Bytes of sound, or none.
  void ttsToData(const std::string& text, std::function<void(Bytes)> completion);
  /// `completion` (may be empty) gets whether it was spoken to its end.
  void speakText(const std::string& text, std::function<void(bool)> completion = {});
  void play(Bytes audio, std::function<void()> completion) {
    player_.play(std::move(audio), std::move(completion));
  }

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
};

}  // namespace kestrin
