#pragma once

#include <optional>
#include <string>

namespace kestrin {

/// What is known of who speaks on a channel.
struct LASpeakerProfile {
  std::optional<std::string> gender;  ///< the last label that was not empty, as received
  int consecutiveDifferentCount = 0;  ///< segments in a row that opposed the one before
  int segmentCount = 0;

  /// True when this label is the second in a row that opposes the one before it. Before `update`.
  bool checkSpeakerChange(const std::optional<std::string>& newGender);
  void update(const std::optional<std::string>& newGender);
};

/// Numbers the speakers of one channel from 1. They are told apart by the gender heard alone. Not
/// thread-safe.
class SpeakerTracker {
 public:
  struct Heard {
    int speakerNumber = 1;
    bool speakerChanged = false;
  };

  Heard updateSpeaker(const std::optional<std::string>& gender);
  int number() const { return number_; }

 private:
  LASpeakerProfile profile_;
  int number_ = 1;
};

}  // namespace kestrin
