#include "liveassist/speaker_tracker.h"

#include "platform/text/text.h"

namespace kestrin {
namespace {

enum class Gender { unknown, male, female };

Gender genderOf(const std::string& label) {
  const std::string plain = text::replaceAll(text::upper(label), "GENDER_", "");
  // "FEMALE" contains "MALE".
  if (text::contains(plain, "FEMALE")) return Gender::female;
  return text::contains(plain, "MALE") ? Gender::male : Gender::unknown;
}

bool oppose(const std::string& a, const std::string& b) {
  const Gender first = genderOf(a);
  const Gender second = genderOf(b);
  return first != second && first != Gender::unknown && second != Gender::unknown;
}

}  // namespace

bool LASpeakerProfile::checkSpeakerChange(const std::optional<std::string>& newGender) {
  if (segmentCount < 1 || !gender || gender->empty() || !newGender || newGender->empty())
    return false;
  if (!oppose(*gender, *newGender)) {
    consecutiveDifferentCount = 0;
    return false;
  }
  constexpr int flipsOfAChange = 2;
  if (++consecutiveDifferentCount < flipsOfAChange) return false;
  consecutiveDifferentCount = 0;
  return true;
}

void LASpeakerProfile::update(const std::optional<std::string>& newGender) {
  if (newGender && !newGender->empty()) gender = newGender;
  ++segmentCount;
}

SpeakerTracker::Heard SpeakerTracker::updateSpeaker(const std::optional<std::string>& gender) {
  const bool changed = profile_.checkSpeakerChange(gender);
  profile_.update(gender);
  if (changed) ++number_;
  return {number_, changed};
}

}  // namespace kestrin
