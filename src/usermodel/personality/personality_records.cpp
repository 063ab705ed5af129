#include "usermodel/personality/personality_records.h"

#include <algorithm>

#include "platform/text/text.h"

namespace kestrin {
namespace {

std::vector<ChartDataPoint> parseChartData(const Json& profile, const char* key) {
  std::vector<ChartDataPoint> points;
  for (const Json* point : profile.objectsAt(key)) {
    const auto label = point->stringAt("label");
    const auto value = point->numberAt("value");
    if (label && value) points.push_back({*label, *value});
  }
  return points;
}

/// "EMOTION_HAPPY" to "Happy".
std::string plainLabel(const std::string& label) {
  const size_t end = label.find('_');
  std::string word = text::lower(end == std::string::npos ? label : label.substr(end + 1));
  return text::capitalizeFirst(text::replaceAll(std::move(word), "_", " "));
}

}  // namespace

const std::array<PersonalityQuestion, 5>& personalityQuestions() {
  static constexpr std::array<PersonalityQuestion, 5> questions{{
      {1, "Tell us about yourself", "What do you do and what are you passionate about?", "👋"},
      {2, "How would friends describe you?", "Your communication style and personality traits",
       "💬"},
      {3, "How do you prefer to work?",
       "Detail-oriented or big picture? Collaborative or independent?", "💼"},
      {4, "How do you handle challenges?", "Your approach to problem-solving and obstacles",
       "🧗"},
      {5, "What topics fascinate you?", "Things you find yourself talking about or researching",
       "✨"},
  }};
  return questions;
}

const Archetype& Archetype::defaultArchetype() {
  static const Archetype archetype{
      "thoughtful_communicator",
      "The Thoughtful Communicator",
      "💭",
      0.3,
      {"Considerate", "Clear", "Balanced"},
      "Be thorough but clear. Take time to explain well. Balance detail with readability."};
  return archetype;
}

std::optional<Archetype> Archetype::fromJson(const Json& json) {
  const auto id = json.stringAt("archetype_id"), name = json.stringAt("name");
  if (!id || !name) return std::nullopt;
  return Archetype{*id,
                   *name,
                   json.stringAt("emoji", ""),
                   json.numberAt("confidence").value_or(0),
                   json.stringsAt("traits"),
                   json.stringAt("style_prompt", "")};
}

Json Archetype::toJson() const {
  return Json::object({{"archetype_id", archetypeId},
                       {"name", name},
                       {"emoji", emoji},
                       {"confidence", confidence},
                       {"traits", Json::arrayOf(traits)},
                       {"style_prompt", stylePrompt}});
}

VoiceProfile VoiceProfile::fromJson(const Json& json) {
  return {json.stringAt("userId", ""),     json.intAt("sampleCount").value_or(0),
          json.stringAt("createdAt"),      json.stringAt("updatedAt"),
          parseChartData(json, "emotion"), parseChartData(json, "intent"),
          parseChartData(json, "age"),     parseChartData(json, "gender")};
}

std::vector<RadarChart> radarCharts(const VoiceProfile& profile) {
  std::vector<RadarChart> charts;
  for (const auto& [title, points] :
       {std::pair{"Emotion", &profile.emotion}, std::pair{"Intent", &profile.intent},
        std::pair{"Age", &profile.age}, std::pair{"Gender", &profile.gender}}) {
    double largest = 0;
    for (const auto& point : *points) largest = std::max(largest, point.value);
    if (largest <= 0) continue;
    RadarChart chart{title, {}, {}, {}};
    std::vector<std::string> shares;
    for (const auto& point : *points) {
      const double value = std::max(point.value, 0.0);
      chart.axisLabels.push_back(plainLabel(point.label));
      chart.values.push_back(value / largest);
      shares.push_back(chart.axisLabels.back() + " " + text::fixed(value * 100, 0) + " %");
    }
    chart.description = text::join(shares, ", ");
    charts.push_back(std::move(chart));
  }
  return charts;
}

}  // namespace kestrin
