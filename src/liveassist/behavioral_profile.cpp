#include "liveassist/behavioral_profile.h"

#include <algorithm>
#include <cmath>

#include "platform/text/text.h"

namespace kestrin {
namespace {

/// A sum never divides by less.
constexpr double leastSum = 1e-8;
constexpr size_t shownInSummary = 3;

struct EmotionRow {
  const char* rawValue;
  ValenceArousalDominance place;
};

/// In the order of the enumeration.
constexpr std::array<EmotionRow, allBehaviorEmotions.size()> emotionTable{{
    {"NEUTRAL", {0.0, 0.0, 0.0}},
    {"HAPPY", {0.8, 0.5, 0.6}},
    {"SAD", {-0.6, -0.3, -0.5}},
    {"ANGRY", {-0.5, 0.8, 0.7}},
    {"FEAR", {-0.6, 0.7, -0.6}},
    {"SURPRISE", {0.2, 0.8, 0.1}},
    {"DISGUST", {-0.7, 0.3, 0.3}},
}};

using Weights = BehavioralProfile::Weights;
using Entries = std::vector<std::pair<std::string, double>>;

double sumOf(const Weights& weights) {
  double sum = 0;
  for (const auto& [label, weight] : weights) sum += weight;
  return std::max(sum, leastSum);
}

double labelWeight(const Weights& weights, const char* label) {
  const auto found = weights.find(label);
  return found == weights.end() ? 0 : found->second;
}

Entries heaviest(Entries entries, size_t n) {
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  entries.resize(std::min(n, entries.size()));
  return entries;
}

std::string shown(const std::string& name, double weight) {
  return name + " (" + text::fixed(weight * 100, 0) + "%)";
}

/// Nothing unless it is an object of finite numbers.
std::optional<Weights> weightsAt(const Json& json, const char* key) {
  const Json* object = json.objectAt(key);
  if (!object) return std::nullopt;
  Weights weights;
  for (const auto& [label, value] : object->members()) {
    const auto number = value.asNumber();
    if (!number || !std::isfinite(*number)) return std::nullopt;
    weights[label] = *number;
  }
  return weights;
}

}  // namespace

const char* rawValue(BehaviorEmotion emotion) { return emotionTable[size_t(emotion)].rawValue; }

BehavioralProfile BehavioralProfile::empty() {
  BehavioralProfile profile;
  for (const auto& row : emotionTable) profile.emotionProfile[row.rawValue] = 0;
  profile.emotionProfile[rawValue(BehaviorEmotion::neutral)] = 1;
  return profile;
}

void BehavioralProfile::emaUpdate(const Weights& emotionProbs, const Weights& intentProbs) {
  const double emotionSum = sumOf(emotionProbs);
  for (const auto& row : emotionTable) {
    double& weight = emotionProfile[row.rawValue];
    weight = (1 - alpha) * weight + alpha * labelWeight(emotionProbs, row.rawValue) / emotionSum;
  }
  const double intentSum = sumOf(intentProbs);
  for (auto& [label, weight] : intentProfile) weight *= 1 - alpha;
  for (const auto& [label, probability] : intentProbs)
    intentProfile[label] += alpha * probability / intentSum;
  if (intentProfile.size() > maxIntentKeys) {
    const Entries kept = topIntents(maxIntentKeys);
    intentProfile = Weights(kept.begin(), kept.end());
  }
  const double total = sumOf(intentProfile);
  for (auto& [label, weight] : intentProfile) weight /= total;
  ++segmentCount;
}

double BehavioralProfile::weightOf(BehaviorEmotion emotion) const {
  return labelWeight(emotionProfile, rawValue(emotion));
}

ValenceArousalDominance BehavioralProfile::currentVAD() const {
  ValenceArousalDominance sum;
  for (const auto& row : emotionTable) {
    const double weight = labelWeight(emotionProfile, row.rawValue);
    sum.valence += weight * row.place.valence;
    sum.arousal += weight * row.place.arousal;
    sum.dominance += weight * row.place.dominance;
  }
  return sum;
}

std::string BehavioralProfile::moodTag() const {
  const auto [v, a, d] = currentVAD();
  if (a > 0.3 && v > 0.2) return "Engaged";
  if (a > 0.3 && v < -0.2) return "Tense";
  if (a < -0.1 && v < -0.2) return "Withdrawn";
  if (a < -0.1 && v > 0.2) return "Calm";
  if (std::abs(v) < 0.15 && std::abs(a) < 0.15) return "Neutral";
  if (d > 0.3) return "Assertive";
  if (d < -0.3) return "Receptive";
  return "Steady";
}

Entries BehavioralProfile::topEmotions(size_t n) const {
  Weights rest = emotionProfile;
  Entries entries;
  for (const auto& row : emotionTable) {
    if (const auto known = rest.extract(row.rawValue))
      entries.emplace_back(row.rawValue, known.mapped());
  }
  entries.insert(entries.end(), rest.begin(), rest.end());
  return heaviest(std::move(entries), n);
}

Entries BehavioralProfile::topIntents(size_t n) const {
  return heaviest({intentProfile.begin(), intentProfile.end()}, n);
}

std::string BehavioralProfile::intentShortLabel(const std::string& label) {
  std::string plain = text::replaceAll(label, "INTENT_", "");
  plain = text::lower(text::replaceAll(std::move(plain), "_", " "));
  std::vector<std::string> words;
  for (const std::string& word : text::split(plain, " ")) {
    constexpr size_t mostWords = 2;
    if (!word.empty() && words.size() < mostWords) words.push_back(text::capitalizeFirst(word));
  }
  return text::join(words, " ");
}

std::string BehavioralProfile::summary() const {
  if (segmentCount < 1) return {};
  std::vector<std::string> parts{"Mood: " + moodTag()};
  std::vector<std::string> names;
  for (const auto& [emotion, weight] : topEmotions(shownInSummary))
    names.push_back(shown(text::capitalizeFirst(text::lower(emotion)), weight));
  if (!names.empty()) parts.push_back("Emotions: " + text::join(names, ", "));
  names.clear();
  for (const auto& [intent, weight] : topIntents(shownInSummary))
    names.push_back(shown(intentShortLabel(intent), weight));
  if (!names.empty()) parts.push_back("Intents: " + text::join(names, ", "));
  parts.push_back("Segments: " + std::to_string(segmentCount));
  return text::join(parts, " | ");
}

Json BehavioralProfile::toJson() const {
  return Json::object({{"emotionProfile", Json::fromMap(emotionProfile)},
                       {"intentProfile", Json::fromMap(intentProfile)},
                       {"segmentCount", segmentCount}});
}

std::optional<BehavioralProfile> BehavioralProfile::fromJson(const Json& json) {
  auto emotions = weightsAt(json, "emotionProfile");
  auto intents = weightsAt(json, "intentProfile");
  const auto segments = json.intAt("segmentCount");
  constexpr int mostSegments = 1'000'000'000;
  if (!emotions || !intents || !segments || *segments < 0 || *segments > mostSegments)
    return std::nullopt;
  return BehavioralProfile{std::move(*emotions), std::move(*intents), int(*segments)};
}

}  // namespace kestrin
