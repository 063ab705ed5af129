#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "platform/bytes.h"
#include "platform/json/json.h"

namespace kestrin {

struct PersonalityQuestion {
  int id;
  const char* question;
  const char* hint;
  const char* emoji;
};
const std::array<PersonalityQuestion, 5>& personalityQuestions();

struct PersonalityAnswer {
  int questionId = 0;
  Bytes audio;  ///< a WAV file
  int durationMs = 0;
};

/// The class of speaker that the backend hears in the user.
struct Archetype {
  std::string archetypeId, name, emoji;
  double confidence = 0;
  std::vector<std::string> traits;
  std::string stylePrompt;

  /// What stands for a user of whom nothing is known.
  static const Archetype& defaultArchetype();
  static std::optional<Archetype> fromJson(const Json& json);
  Json toJson() const;
  bool operator==(const Archetype&) const = default;
};

struct ChartDataPoint {
  std::string label;
  double value = 0;
  bool operator==(const ChartDataPoint&) const = default;
};

/// How the user sounds over time.
struct VoiceProfile {
  std::string userId;
  int64_t sampleCount = 0;
  std::optional<std::string> createdAt, updatedAt;
  std::vector<ChartDataPoint> emotion, intent, age, gender;

  static VoiceProfile fromJson(const Json& json);
};

/// One chart of the page: a value for each axis, 0 to 1.
struct RadarChart {
  std::string title;
  std::vector<std::string> axisLabels;
  std::vector<double> values;
  std::string description;  ///< "Happy 50 %, Neutral 25 %": the values before they were scaled
  bool operator==(const RadarChart&) const = default;
};
/// Those with something to show, in a fixed order; each scaled to its largest value.
std::vector<RadarChart> radarCharts(const VoiceProfile& profile);

}  // namespace kestrin
