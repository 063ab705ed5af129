#include "liveassist/mic_converter.h"

#include <numeric>
#include <span>

#include "platform/audio/wav.h"

namespace kestrin {
namespace {

/// More than the filter reaches to either side at any rate up to 384 kHz.
constexpr size_t leastMargin = 512;

/// A margin of whole output samples, so that the context shifts nothing.
size_t marginFor(int sampleRate) {
  const auto step = size_t(sampleRate / std::gcd(sampleRate, wav::speechSampleRate));
  return (leastMargin + step - 1) / step * step;
}

}  // namespace

MicConverter::MicConverter(const AudioFormat& format)
    : format_(format), margin_(marginFor(format.sampleRate)), tail_(2 * margin_, 0.0F) {}

Bytes MicConverter::convert(const std::vector<float>& interleaved) {
  std::vector<float> mono =
      wav::toMono({format_.sampleRate, format_.channels, std::vector<float>(interleaved)});
  const auto toOutput = [&](size_t frames) {
    return frames * size_t(wav::speechSampleRate) / size_t(format_.sampleRate);
  };
  const size_t count = toOutput(mono.size());
  tail_.insert(tail_.end(), mono.begin(), mono.end());
  const std::vector<float> resampled =
      wav::resample(tail_, format_.sampleRate, wav::speechSampleRate);
  tail_.erase(tail_.begin(), tail_.end() - ptrdiff_t(2 * margin_));
  return wav::toPcm16(std::span(resampled).subspan(toOutput(margin_), count));
}

}  // namespace kestrin
