#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/result.h"

namespace kestrin {

/// What the recogniser says of one segment, its text cleaned.
struct SegmentAnswer {
  std::string text;
  std::optional<std::string> gender;
  std::optional<std::string> age;
  std::optional<std::string> emotion;
  std::optional<std::string> intent;
  /// Probability by label, without the prefixes.
  std::map<std::string, double> emotionProbs;
  std::map<std::string, double> intentProbs;
};

/// Reads an answer tolerantly: what is absent or of another type is left out. Errors: domain
/// "LiveAssistTranscriber", description "Invalid ASR response", the text that the recogniser gave
/// for its own failure, or "empty" where no usable speech was heard.
Result<SegmentAnswer> parseSegmentAnswer(std::string_view body);

}  // namespace kestrin
