#include "companion/recogniser/voice_labels.h"

#include <algorithm>
#include <cmath>

#include "platform/text/text.h"

namespace kestrin::recogniser {

namespace {

// Between the usual ranges of men's and women's voices the pitch says nothing.
constexpr double betweenVoices = 165;
constexpr double pitchScale = 14;
constexpr double largestSpread = 0.35;  // several voices, or singing
constexpr double mostCertain = 0.9;
constexpr double loudSpeech = 0.2;

struct WordRule {
  const char* label;
  double weight;
  const char* words;  ///< separated by blanks; each counts wherever it stands
};

constexpr WordRule emotionRules[] = {
    {"happy", 1.0,
     "glad happy great wonderful love lovely thanks thank excellent fantastic congratulations"},
    {"sad", 1.0, "sad sorry unfortunately miss lost regret crying lonely"},
    {"angry", 1.0, "angry hate furious ridiculous unacceptable terrible annoying stupid"},
    {"worried", 1.0, "worried afraid anxious nervous concerned scared"},
};
// Speech that shows nothing is the rule, so it starts ahead; words prove little, so no label is
// ruled out.
constexpr double neutralWeight = 1.6;
constexpr double leastWeight = 0.2;

constexpr WordRule intentOpenings[] = {
    {"question", 2.0,
     "what when where who whom whose why how which can could would will is are do does did"},
    {"command", 2.0,
     "open close send write search find play stop start call create delete remind show set turn "
     "launch "
     "take add schedule email reply summarize translate"},
    {"greeting", 1.5, "hello hi hey dear good"},
    {"gratitude", 1.5, "thanks thank"},
};
constexpr double statementWeight = 1.5;

std::vector<std::string> wordsOf(std::string_view transcript) {
  std::vector<std::string> words;
  std::string word;
  for (const char c : text::lower(transcript) + " ") {
    if ((c >= 'a' && c <= 'z') || c == '\'') {
      word += c;
    } else if (!word.empty()) {
      words.push_back(std::move(word));
      word.clear();
    }
  }
  return words;
}

bool listed(const WordRule& rule, const std::string& word) {
  return text::contains(" " + std::string(rule.words) + " ", " " + word + " ");
}

/// Weights become probabilities, the most probable first.
Candidates normalised(Candidates weights) {
  double sum = 0;
  for (const Candidate& c : weights) sum += c.probability;
  for (Candidate& c : weights) c.probability /= sum;
  std::stable_sort(weights.begin(), weights.end(), [](const Candidate& a, const Candidate& b) {
    return a.probability > b.probability;
  });
  return weights;
}

Candidates genderOf(const Pitch& pitch) {
  if (pitch.spread > largestSpread) return {};
  const double female = 1 / (1 + std::exp((betweenVoices - pitch.medianHertz) / pitchScale));
  const double bounded = std::clamp(female, 1 - mostCertain, mostCertain);
  return normalised({{"female", bounded}, {"male", 1 - bounded}});
}

Candidates emotionOf(const std::vector<std::string>& words, std::string_view transcript,
                     double level) {
  Candidates weights{{"neutral", neutralWeight}};
  for (const WordRule& rule : emotionRules) {
    double weight = leastWeight;
    for (const std::string& word : words) weight += listed(rule, word) ? rule.weight : 0;
    weights.push_back({rule.label, std::min(weight, 3.0)});
  }
  const double stress =
      leastWeight + (level > loudSpeech ? 0.5 : 0) + (text::contains(transcript, "!") ? 0.5 : 0);
  weights.push_back({"excited", stress});
  return normalised(std::move(weights));
}

Candidates intentOf(const std::vector<std::string>& words, std::string_view transcript) {
  Candidates weights{{"statement", statementWeight}};
  if (words.empty()) return {};
  const bool polite = words.front() == "please" && words.size() > 1;
  const std::string& opening = polite ? words[1] : words.front();
  for (const WordRule& rule : intentOpenings) {
    weights.push_back({rule.label, listed(rule, opening) ? rule.weight : leastWeight});
  }
  if (transcript.ends_with("?")) weights[1].probability += 4;
  return normalised(std::move(weights));
}

}  // namespace

VoiceLabels labelVoice(std::string_view transcript, const std::optional<Pitch>& pitch,
                       double level) {
  const std::vector<std::string> words = wordsOf(transcript);
  if (words.empty()) return {};
  VoiceLabels labels;
  if (pitch) labels.gender = genderOf(*pitch);
  labels.emotion = emotionOf(words, transcript, level);
  labels.intent = intentOf(words, transcript);
  return labels;
}

std::optional<std::string> clearLabel(const Candidates& candidates, double leastProbability) {
  if (candidates.empty() || candidates.front().probability < leastProbability) return std::nullopt;
  return candidates.front().token;
}

double loudness(std::span<const float> samples) {
  double energy = 0;
  for (const float s : samples) energy += double(s) * s;
  return samples.empty() ? 0 : std::sqrt(energy / double(samples.size()));
}

}  // namespace kestrin::recogniser
