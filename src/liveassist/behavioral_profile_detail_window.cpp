#include "liveassist/behavioral_profile_detail_window.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

std::string shownName(const std::string& rawEmotion) {
  return text::capitalizeFirst(text::lower(rawEmotion));
}

std::string withSign(double value) {
  return (std::signbit(value) ? "" : "+") + text::fixed(value, 2);
}

std::string percent(double share) { return text::fixed(share * 100, 0) + "%"; }

std::string topIntentOf(const BehavioralProfile& profile) {
  const auto top = profile.topIntents(1);
  return top.empty() ? std::string() : BehavioralProfile::intentShortLabel(top.front().first);
}

std::vector<EmotionBarRow> emotionRowsOf(const BehavioralProfile& profile,
                                         const BehavioralProfile* comparison) {
  std::vector<EmotionBarRow> rows;
  for (const BehaviorEmotion emotion : allBehaviorEmotions) {
    EmotionBarRow row{shownName(rawValue(emotion)), profile.weightOf(emotion), std::nullopt};
    if (comparison) row.comparison = comparison->weightOf(emotion);
    rows.push_back(std::move(row));
  }
  return rows;
}

struct Dimension {
  const char* name;
  const char* low;
  const char* high;
  double ValenceArousalDominance::*value;
};

constexpr Dimension dimensions[] = {
    {"Valence", "Negative", "Positive", &ValenceArousalDominance::valence},
    {"Arousal", "Calm", "Excited", &ValenceArousalDominance::arousal},
    {"Dominance", "Receptive", "Assertive", &ValenceArousalDominance::dominance},
};

}  // namespace

double calculateEntropy(const BehavioralProfile::Weights& weights) {
  double entropy = 0;
  for (const auto& [label, weight] : weights)
    if (weight > 0) entropy -= weight * std::log(weight);
  return entropy;
}

double diversity(const BehavioralProfile::Weights& weights, size_t categories) {
  if (categories <= 1) return 0;
  return std::clamp(calculateEntropy(weights) / std::log(double(categories)), 0.0, 1.0);
}

void BehavioralProfileDetailWindow::show(BehavioralProfile profile,
                                         std::optional<BehavioralProfile> comparison) {
  profile_ = std::move(profile);
  comparison_ = std::move(comparison);
  if (onChange) onChange();
}

std::string BehavioralProfileDetailWindow::dominantEmotion() const {
  const auto top = profile_.topEmotions(1);
  return shownName(top.empty() ? rawValue(BehaviorEmotion::neutral) : top.front().first);
}

std::string BehavioralProfileDetailWindow::segmentsText() const {
  return std::to_string(profile_.segmentCount) + " segments";
}

std::vector<EmotionBarRow> BehavioralProfileDetailWindow::emotionRows() const {
  return emotionRowsOf(profile_, comparison_ ? &*comparison_ : nullptr);
}

std::vector<VADGaugeRow> BehavioralProfileDetailWindow::gauges() const {
  const auto own = profile_.currentVAD();
  const auto other = comparison_ ? std::optional(comparison_->currentVAD()) : std::nullopt;
  std::vector<VADGaugeRow> rows;
  for (const Dimension& each : dimensions) {
    VADGaugeRow row{each.name, each.low, each.high, own.*each.value};
    row.valueText = withSign(row.value);
    if (other) {
      row.comparison = *other.*each.value;
      row.comparisonText = withSign(*row.comparison);
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

std::vector<IntentBarRow> BehavioralProfileDetailWindow::intentRows() const {
  std::vector<IntentBarRow> rows;
  for (const auto& [label, weight] : profile_.topIntents(shownIntents))
    rows.push_back({rows.size() + 1, BehavioralProfile::intentShortLabel(label), weight});
  return rows;
}

std::string BehavioralProfileDetailWindow::intentsNote() const {
  const size_t all = profile_.intentProfile.size();
  if (all == 0) return noIntents;
  if (all <= shownIntents) return {};
  return std::to_string(all - shownIntents) + " more intents tracked";
}

std::vector<StatisticsTile> BehavioralProfileDetailWindow::statistics() const {
  return {
      {"Dominant Emotion", dominantEmotion()},
      {"Top Intent", topIntentOf(profile_)},
      {"Segments", std::to_string(profile_.segmentCount)},
      {"Mood: " + profile_.moodTag(), ""},
      {"Emotion Diversity",
       percent(diversity(profile_.emotionProfile, allBehaviorEmotions.size()))},
      {"Intent Diversity",
       percent(diversity(profile_.intentProfile, profile_.intentProfile.size()))},
  };
}

MiniMoodRingView MiniMoodRingView::of(const BehavioralProfile& profile) {
  return {profile.moodTag(), topIntentOf(profile), emotionRowsOf(profile, nullptr)};
}

}  // namespace kestrin
