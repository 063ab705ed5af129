#pragma once

#include <optional>
#include <span>

namespace kestrin::recogniser {

/// The pitch of a voice over a recording.
struct Pitch {
  double medianHertz = 0;
  /// Width of the middle half of all frames as a share of the median: small for one steady voice.
  double spread = 0;
};

/// Measured over at most the first 20 s of mono sound at 16 kHz. Nothing when too little of it is
/// voiced to say.
std::optional<Pitch> measurePitch(std::span<const float> samples);

}  // namespace kestrin::recogniser
