#include "companion/recogniser/pitch.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "companion/recogniser/engine.h"

namespace kestrin::recogniser {

namespace {

// The sound is thinned to 4 kHz: pitch lies far below, and the work falls by sixteen.
constexpr size_t thinning = 4;
constexpr double thinRate = double(sampleRate) / thinning;
constexpr size_t frameSize = 240;   // 60 ms: three periods of the lowest voice
constexpr size_t frameStep = 80;    // 20 ms
constexpr size_t shortestLag = 10;  // 400 Hz
constexpr size_t longestLag = 60;   // 67 Hz
constexpr double voicedCorrelation = 0.75;
constexpr size_t leastVoicedFrames = 25;  // half a second
constexpr size_t mostSeconds = 20;

std::vector<float> thinned(std::span<const float> samples) {
  samples = samples.first(std::min(samples.size(), mostSeconds * sampleRate));
  std::vector<float> out;
  for (size_t i = 0; i + thinning <= samples.size(); i += thinning) {
    float sum = 0;
    for (size_t k = 0; k < thinning; ++k) sum += samples[i + k];
    out.push_back(sum / thinning);
  }
  return out;
}

double correlation(std::span<const float> frame, size_t lag) {
  double product = 0, first = 0, second = 0;
  for (size_t i = 0; i + lag < frame.size(); ++i) {
    product += double(frame[i]) * frame[i + lag];
    first += double(frame[i]) * frame[i];
    second += double(frame[i + lag]) * frame[i + lag];
  }
  return first > 0 && second > 0 ? product / std::sqrt(first * second) : 0;
}

std::optional<double> framePitch(std::span<const float> frame) {
  std::vector<double> values(longestLag + 2);
  for (size_t lag = shortestLag - 1; lag <= longestLag + 1; ++lag)
    values[lag] = correlation(frame, lag);
  const double best =
      *std::max_element(values.begin() + shortestLag, values.begin() + longestLag + 1);
  if (best < voicedCorrelation) return std::nullopt;
  // The first peak that is nearly the best: a later one is a multiple of the period.
  for (size_t lag = shortestLag; lag <= longestLag; ++lag) {
    const double left = values[lag - 1], here = values[lag], right = values[lag + 1];
    if (here < 0.9 * best || here < left || here < right) continue;
    const double curve = left - 2 * here + right;
    const double shift = curve < 0 ? 0.5 * (left - right) / curve : 0;
    return thinRate / (double(lag) + shift);
  }
  return std::nullopt;
}

}  // namespace

std::optional<Pitch> measurePitch(std::span<const float> samples) {
  const std::vector<float> sound = thinned(samples);
  double energy = 0;
  for (const float s : sound) energy += double(s) * s;
  const double floor =
      sound.empty() ? 0 : 0.2 * energy / double(sound.size());  // quiet frames are breath

  std::vector<double> found;
  for (size_t at = 0; at + frameSize <= sound.size(); at += frameStep) {
    const auto frame = std::span(sound).subspan(at, frameSize);
    double frameEnergy = 0;
    for (const float s : frame) frameEnergy += double(s) * s;
    if (frameEnergy == 0 || frameEnergy / frameSize < floor) continue;
    if (const auto pitch = framePitch(frame)) found.push_back(*pitch);
  }
  if (found.size() < leastVoicedFrames) return std::nullopt;
  std::sort(found.begin(), found.end());
  const auto at = [&](double share) {
    return found[static_cast<size_t>(share * double(found.size() - 1))];
  };
  return Pitch{at(0.5), (at(0.75) - at(0.25)) / at(0.5)};
}

}  // namespace kestrin::recogniser
