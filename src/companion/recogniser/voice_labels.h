#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "companion/recogniser/pitch.h"

namespace kestrin::recogniser {

struct Candidate {
  std::string token;
  double probability = 0;
};

/// Candidates of one attribute, most probable first; empty when there is nothing to say.
using Candidates = std::vector<Candidate>;

/// What can honestly be said about a voice without a model for it. Age is never guessed. Gender
/// comes from the pitch; emotion and intent from the words and the loudness, with probabilities
/// that show how little that is.
struct VoiceLabels {
  Candidates gender;
  Candidates emotion;
  Candidates intent;
};

/// `loudness`: root mean square of the sound, 0 to 1. All empty for an empty transcript.
VoiceLabels labelVoice(std::string_view transcript, const std::optional<Pitch>& pitch,
                       double loudness);

/// The label worth naming: the first candidate, when it is at least this probable; otherwise
/// nothing.
std::optional<std::string> clearLabel(const Candidates& candidates, double leastProbability);

double loudness(std::span<const float> samples);

}  // namespace kestrin::recogniser
