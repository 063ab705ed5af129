#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "liveassist/behavioral_profile.h"

namespace kestrin {

/// Shannon entropy of the weights that are positive, in nats.
double calculateEntropy(const BehavioralProfile::Weights& weights);
/// The entropy in relation to the most that so many categories can have: 0 to 1.
double diversity(const BehavioralProfile::Weights& weights, size_t categories);

/// One emotion's bar.
struct EmotionBarRow {
  std::string name;  ///< "Happy"
  double weight = 0;
  std::optional<double> comparison;
};

/// A gauge from -1 (`low`) to 1 (`high`).
struct VADGaugeRow {
  std::string name;
  std::string low;
  std::string high;
  double value = 0;
  std::string valueText;  ///< "+0.25"
  std::optional<double> comparison;
  std::string comparisonText;  ///< empty without comparison
};

struct IntentBarRow {
  size_t rank = 1;
  std::string label;
  double weight = 0;
};

struct StatisticsTile {
  std::string title;
  std::string value;
};

/// All that is known of how one side sounds, beside another one where there is one. Main queue
/// only.
class BehavioralProfileDetailWindow {
 public:
  static constexpr size_t shownIntents = 12;
  static constexpr const char* emotionalDimensions = "Emotional Dimensions (VAD)";
  static constexpr const char* legend =
      "Valence (positive/negative), Arousal (calm/excited), Dominance (submissive/dominant) — "
      "Russell's circumplex model.";
  static constexpr const char* intentDistribution = "Intent Distribution";
  static constexpr const char* noIntents = "No intent data yet — waiting for speech segments.";

  explicit BehavioralProfileDetailWindow(std::string title) : title_(std::move(title)) {}

  std::function<void()> onChange;

  void show(BehavioralProfile profile, std::optional<BehavioralProfile> comparison = std::nullopt);

  std::string heading() const { return title_ + " — Behavioral Profile"; }
  std::string dominantEmotion() const;  ///< "Happy"
  std::string segmentsText() const;     ///< "4 segments"
  std::vector<EmotionBarRow> emotionRows() const;
  std::vector<VADGaugeRow> gauges() const;
  /// The heaviest 12.
  std::vector<IntentBarRow> intentRows() const;
  /// What stands below the intents: how many are left out, or that there are none. May be empty.
  std::string intentsNote() const;
  std::vector<StatisticsTile> statistics() const;

 private:
  std::string title_;
  BehavioralProfile profile_ = BehavioralProfile::empty();
  std::optional<BehavioralProfile> comparison_;
};

/// The small ring of one side: its mood, its first intent and the emotions round it.
struct MiniMoodRingView {
  std::string moodTag;
  std::string topIntent;  ///< empty without intents
  std::vector<EmotionBarRow> ring;

  static MiniMoodRingView of(const BehavioralProfile& profile);
};

}  // namespace kestrin
