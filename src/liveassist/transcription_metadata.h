#pragma once

#include <optional>
#include <string>

#include "platform/json/json.h"

namespace kestrin {

/// What is known of a transcribed segment besides its words. Labels are as received, with their
/// prefixes ("GENDER_", "AGE_", "EMOTION_", "INTENT_").
struct LATranscriptionMetadata {
  double duration = 0;  ///< seconds
  std::optional<std::string> gender;
  std::optional<std::string> age;
  std::optional<std::string> emotion;
  std::optional<std::string> intent;
  int speakerNumber = 1;  ///< of the channel, after this segment
  bool speakerChanged = false;

  /// "S1 3.2s MALE 25_34 HAPPY [INFORM]"; a label that is missing is left out.
  std::string displayString() const;
  /// For the session's record: `duration`, and the four labels, empty where one is missing.
  Json loggingDict() const;
};

namespace LATranscriptUtils {

/// Without the labels that the recogniser puts into its text, single blanks between words.
std::string cleanTranscriptText(const std::string& text);
/// Two characters or fewer, or nothing but punctuation.
bool isMinimalContent(const std::string& text);

}  // namespace LATranscriptUtils
}  // namespace kestrin
