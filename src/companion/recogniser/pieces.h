#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace kestrin::recogniser {

/// Part of a recording, in samples.
struct Piece {
  size_t begin = 0;
  size_t end = 0;

  size_t size() const { return end - begin; }
  bool operator==(const Piece&) const = default;
};

/// Cuts `whole` of a recording into pieces of at most `longest` samples that follow each other
/// without a gap. Each cut lies in the quietest moment that keeps the pieces neither too long nor
/// needlessly short.
std::vector<Piece> cutAtPauses(std::span<const float> samples, Piece whole, size_t longest);

/// True when there is practically no sound at all (an unplugged or muted microphone).
bool isDigitalSilence(std::span<const float> samples);

}  // namespace kestrin::recogniser
