#pragma once

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/audio/wav.h"
#include "platform/simulated/fault_plan.h"
#include "platform/system_speech.h"
#include "platform/text/text.h"

namespace kestrin {

/// A synthesiser that hums: each word takes its time at the style's speed. Sites: "speech.voices",
/// "speech.synthesise".
class SimulatedSpeech final : public SystemSpeech {
 public:
  explicit SimulatedSpeech(FaultPlan* faults = nullptr) : faults_(faults) {}

  Result<std::vector<SpeechVoice>> voices() override {
    if (faultDue(faults_, "speech.voices") || !installed) return missing();
    return known;
  }
  Result<Bytes> synthesise(const std::string& text, const SpeechStyle& style) override {
    if (faultDue(faults_, "speech.synthesise") || !installed) return missing();
    const auto trimmed = text::trim(text);
    if (trimmed.empty()) return fail("SystemSpeech", nothingToSay, "There is nothing to say");
    const bool isKnown = style.voiceId.empty() ||
                         std::any_of(known.begin(), known.end(),
                                     [&](const auto& voice) { return voice.id == style.voiceId; });
    if (!isKnown) return fail("SystemSpeech", synthesisFailed, "There is no such voice");
    {
      const std::lock_guard lock(mutex_);
      spoken_.emplace_back(text, style);
    }
    const auto words = double(text::split(trimmed, " ").size());
    const double seconds = words * 60 / std::clamp(style.wordsPerMinute, 80.0, 450.0);
    const auto level = float(std::clamp(style.volume, 0.0, 1.0) * 0.5);
    return wav::write(wav::toPcm16(
        std::vector<float>(size_t(std::max(1.0, seconds * wav::speechSampleRate)), level)));
  }

  /// What was spoken, in order.
  std::vector<std::pair<std::string, SpeechStyle>> spoken() const {
    const std::lock_guard lock(mutex_);
    return spoken_;
  }

  bool installed = true;
  std::vector<SpeechVoice> known{{"en", "English", "en-gb"}, {"de", "German", "de"}};

 private:
  static tl::unexpected<Error> missing() {
    return fail("SystemSpeech", noSynthesiser, "No speech synthesiser is installed");
  }
  FaultPlan* const faults_;
  mutable std::mutex mutex_;
  std::vector<std::pair<std::string, SpeechStyle>> spoken_;
};

}  // namespace kestrin
