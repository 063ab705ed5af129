#include "companion/recogniser/pieces.h"

#include <algorithm>
#include <cmath>

namespace kestrin::recogniser {

namespace {

// 20 ms steps; a pause is looked for over 0.3 s, so that the gap inside a word is none.
constexpr size_t step = 320;
constexpr size_t pauseSteps = 15;
constexpr float silencePeak = 1e-4f;  // -80 dB

/// The middle of the quietest stretch between two positions.
size_t quietest(std::span<const float> samples, size_t from, size_t to) {
  std::vector<double> energies;
  for (size_t at = from; at + step <= to; at += step) {
    double energy = 0;
    for (size_t i = 0; i < step; ++i) energy += double(samples[at + i]) * samples[at + i];
    energies.push_back(energy);
  }
  const size_t width = std::min(pauseSteps, energies.size());
  if (width == 0) return to;
  double window = 0;
  for (size_t i = 0; i < width; ++i) window += energies[i];
  double best = window;
  size_t bestAt = 0;
  for (size_t i = width; i < energies.size(); ++i) {
    window += energies[i] - energies[i - width];
    // Equal silence: the later cut makes fewer pieces.
    if (window <= best) {
      best = window;
      bestAt = i - width + 1;
    }
  }
  return from + (bestAt + width / 2) * step;
}

}  // namespace

std::vector<Piece> cutAtPauses(std::span<const float> samples, Piece whole, size_t longest) {
  std::vector<Piece> pieces;
  size_t begin = whole.begin;
  while (whole.end - begin > longest) {
    const size_t cut = quietest(samples, begin + longest / 2, begin + longest);
    pieces.push_back({begin, cut});
    begin = cut;
  }
  pieces.push_back({begin, whole.end});
  return pieces;
}

bool isDigitalSilence(std::span<const float> samples) {
  return std::all_of(samples.begin(), samples.end(),
                     [](float s) { return std::abs(s) < silencePeak; });
}

}  // namespace kestrin::recogniser
