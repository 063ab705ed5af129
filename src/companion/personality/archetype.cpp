#include "companion/personality/archetype.h"

#include <algorithm>
#include <array>

#include "companion/agent/spoken_text.h"
#include "companion/agent/words.h"
#include "platform/text/text.h"

namespace kestrin::personality {
namespace {

struct Kind {
  const char *id, *name, *emoji, *style;
  std::array<const char*, 3> traits;
};
constexpr Kind thoughtful{
    "thoughtful_communicator",
    "The Thoughtful Communicator",
    "💭",
    "Be thorough but clear. Take time to explain well. Balance detail with readability.",
    {"Considerate", "Clear", "Balanced"}};
constexpr Kind direct{"direct_communicator",
                      "The Direct Communicator",
                      "🎯",
                      "Be brief. Lead with the point, one idea a sentence, no preamble.",
                      {"Concise", "Decisive", "Plain"}};
constexpr Kind storyteller{
    "storyteller",
    "The Storyteller",
    "📖",
    "Write in flowing sentences. Keep the order in which things were told, and the images.",
    {"Expressive", "Vivid", "Generous"}};
constexpr Kind explorer{"curious_explorer",
                        "The Curious Explorer",
                        "🧭",
                        "Keep questions open and lively. Name what is not known yet.",
                        {"Curious", "Open", "Quick"}};
constexpr Kind organiser{
    "organiser",
    "The Organiser",
    "🗂️",
    "Use lists and short headings. Put actions, names and dates where they are found at once.",
    {"Structured", "Reliable", "Precise"}};

constexpr double shortWords = 9, longWords = 22;
constexpr double manyQuestions = 0.3, manyLists = 0.4;
constexpr double certainFrom = 50;  ///< dictations

}  // namespace

Json classify(const std::vector<backend::Dictation>& dictations) {
  double words = 0, sentences = 0, questions = 0, lists = 0;
  for (const auto& dictation : dictations) {
    for (const auto& sentence : agent::sentences(dictation.transcript)) {
      ++sentences;
      words += double(agent::splitWords(sentence).size());
      questions += sentence.ends_with("?") || agent::soundsLikeQuestion(agent::plainForm(sentence));
    }
    lists += dictation.mode == "notes" || dictation.mode == "email";
  }
  const double count = double(dictations.size());
  const double length = sentences > 0 ? words / sentences : 0;
  const bool isDefault = dictations.size() < fewest || sentences == 0;
  const Kind& kind = isDefault                                ? thoughtful
                     : questions / sentences >= manyQuestions ? explorer
                     : lists / count >= manyLists             ? organiser
                     : length <= shortWords                   ? direct
                     : length >= longWords                    ? storyteller
                                                              : thoughtful;
  Json traits = Json::array();
  for (const char* trait : kind.traits) traits.push(trait);
  const double confidence = isDefault ? 0.3 : 0.4 + 0.5 * std::min(1.0, count / certainFrom);
  return Json::object({{"success", true},
                       {"isDefault", isDefault},
                       {"archetype", Json::object({{"archetype_id", kind.id},
                                                   {"name", kind.name},
                                                   {"emoji", kind.emoji},
                                                   {"confidence", confidence},
                                                   {"traits", std::move(traits)},
                                                   {"style_prompt", kind.style}})}});
}

}  // namespace kestrin::personality
