#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/json/json.h"

namespace kestrin {

enum class BehaviorEmotion { neutral, happy, sad, angry, fear, surprise, disgust };

inline constexpr std::array allBehaviorEmotions{
    BehaviorEmotion::neutral, BehaviorEmotion::happy, BehaviorEmotion::sad,
    BehaviorEmotion::angry,   BehaviorEmotion::fear,  BehaviorEmotion::surprise,
    BehaviorEmotion::disgust,
};

/// "NEUTRAL", "HAPPY", ...
const char* rawValue(BehaviorEmotion emotion);

/// A place among the emotions, each of the three from -1 to 1.
struct ValenceArousalDominance {
  double valence = 0;
  double arousal = 0;
  double dominance = 0;
};

/// How somebody has sounded over a day or a session: moving averages of the recogniser's
/// probabilities. A plain value.
struct BehavioralProfile {
  using Weights = std::map<std::string, double>;
  static constexpr double alpha = 0.3;
  static constexpr size_t maxIntentKeys = 30;

  Weights emotionProfile;  ///< by the emotion's raw value
  Weights intentProfile;   ///< by the label, without "INTENT_"
  int segmentCount = 0;

  /// All of it neutral, no intents, no segments.
  static BehavioralProfile empty();

  /// Folds one segment in (`emaUpdate`).
  void emaUpdate(const Weights& emotionProbs, const Weights& intentProbs);
  /// From 0 to 1.
  double weightOf(BehaviorEmotion emotion) const;
  ValenceArousalDominance currentVAD() const;
  /// One word: "Engaged", "Tense", "Withdrawn", "Calm", "Neutral", "Assertive", "Receptive",
  /// "Steady".
  std::string moodTag() const;
  /// The heaviest first; among equals the emotions in their own order, the intents by name.
  std::vector<std::pair<std::string, double>> topEmotions(size_t n) const;
  std::vector<std::pair<std::string, double>> topIntents(size_t n) const;
  /// "INTENT_ASK_FOR_HELP" to "Ask For".
  static std::string intentShortLabel(const std::string& label);
  /// "Mood: Engaged | Emotions: Happy (70%), ... | Intents: ... | Segments: 4"; empty without
  /// segments.
  std::string summary() const;

  Json toJson() const;
  /// Nothing when a key is missing or of another type.
  static std::optional<BehavioralProfile> fromJson(const Json& json);
  bool operator==(const BehavioralProfile&) const = default;
};

}  // namespace kestrin
