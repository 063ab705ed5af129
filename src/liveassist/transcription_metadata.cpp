#include "liveassist/transcription_metadata.h"

#include <re2/re2.h>

#include "platform/text/text.h"

namespace kestrin {
namespace {

std::string without(const std::optional<std::string>& label, std::string_view prefix) {
  return label ? text::replaceAll(*label, prefix, "") : std::string();
}

void replaceEach(std::string& text, const RE2& pattern, const char* replacement) {
  RE2::GlobalReplace(&text, pattern, replacement);
}

}  // namespace

std::string LATranscriptionMetadata::displayString() const {
  std::string out = "S" + std::to_string(speakerNumber) + " " + text::fixed(duration, 1) + "s";
  for (const auto& label :
       {without(gender, "GENDER_"), without(age, "AGE_"), without(emotion, "EMOTION_")}) {
    if (!label.empty()) out += " " + label;
  }
  const std::string plainIntent = without(intent, "INTENT_");
  if (!plainIntent.empty()) out += " [" + plainIntent + "]";
  return out;
}

Json LATranscriptionMetadata::loggingDict() const {
  return Json::object({{"duration", duration},
                       {"gender", gender.value_or("")},
                       {"age", age.value_or("")},
                       {"emotion", emotion.value_or("")},
                       {"intent", intent.value_or("")}});
}

namespace LATranscriptUtils {

std::string cleanTranscriptText(const std::string& text) {
  // "END" as a word is the recogniser's own mark, too.
  static const RE2 age(R"(AGE_\d+_\d+)");
  static const RE2 gender(R"(GENDER_[\pL\pM\pN_]+)");
  static const RE2 emotion(R"(EMOTION_[\pL\pM\pN_]+)");
  static const RE2 intent(R"(INTENT_[\pL\pM\pN_]+)");
  static const RE2 speaker("SPEAKER_CHANGE");
  static const RE2 end(R"(\bEND\b)");
  static const RE2 blanks(R"([\s\pZ]+)");
  std::string out = text::replaceInvalidUtf8(text);
  for (const RE2* label : {&age, &gender, &emotion, &intent, &speaker, &end})
    replaceEach(out, *label, "");
  replaceEach(out, blanks, " ");
  return text::trim(out);
}

bool isMinimalContent(const std::string& text) {
  static const RE2 punctuation(R"([\pP\s\pZ])");
  std::string rest = text::trim(text);
  constexpr size_t mostOfMinimal = 2;
  if (text::characterCount(rest) <= mostOfMinimal) return true;
  replaceEach(rest, punctuation, "");
  return rest.empty();
}

}  // namespace LATranscriptUtils
}  // namespace kestrin
