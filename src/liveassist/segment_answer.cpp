#include "liveassist/segment_answer.h"

#include "liveassist/transcription_metadata.h"
#include "platform/json/json.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* domain = "LiveAssistTranscriber";

std::string firstText(const Json& json) {
  for (const char* key : {"transcript", "text", "transcription"}) {
    if (auto text = json.stringAt(key, ""); !text.empty()) return text;
  }
  return {};
}

/// The labels are an object, or the first of a list of them.
const Json* labelsOf(const Json& json) {
  const Json* metadata = json.find("metadata");
  if (metadata && !metadata->items().empty()) metadata = &metadata->items().front();
  return metadata && metadata->isObject() ? metadata : nullptr;
}

std::map<std::string, double> probabilities(const Json* all, const char* key, const char* prefix) {
  std::map<std::string, double> out;
  if (!all) return out;
  for (const Json* item : all->objectsAt(key)) {
    const auto token = item->stringAt("token");
    const auto probability = item->numberAt("probability");
    if (token && probability && *probability >= 0)
      out[text::replaceAll(*token, prefix, "")] = *probability;
  }
  return out;
}

}  // namespace

Result<SegmentAnswer> parseSegmentAnswer(std::string_view body) {
  const auto json = Json::parse(body);
  if (!json || !json->isObject()) return fail(domain, 1, "Invalid ASR response");
  if (auto error = json->stringAt("error", ""); !error.empty()) return fail(domain, 2, error);

  SegmentAnswer answer;
  answer.text = LATranscriptUtils::cleanTranscriptText(firstText(*json));
  if (answer.text.empty() || LATranscriptUtils::isMinimalContent(answer.text))
    return fail(domain, 3, "empty");
  if (const Json* labels = labelsOf(*json)) {
    answer.gender = labels->stringAt("gender");
    answer.age = labels->stringAt("age");
    if (!answer.age) answer.age = labels->stringAt("age_range");
    answer.emotion = labels->stringAt("emotion");
    answer.intent = labels->stringAt("intent");
  }
  const Json* probs = json->objectAt("metadata_probs");
  answer.emotionProbs = probabilities(probs, "emotion", "EMOTION_");
  answer.intentProbs = probabilities(probs, "intent", "INTENT_");
  return answer;
}

}  // namespace kestrin
