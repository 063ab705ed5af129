#include "dictation/pcm_collector.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace kestrin {
namespace {

constexpr double pickedRate = 16000;

/// Truncated, as every consumer of these bytes expects; what is no number is silence.
int16_t toSample(float value) {
  if (!std::isfinite(value)) return 0;
  return int16_t(std::clamp(value, -1.0F, 1.0F) * 32767.0F);
}

}  // namespace

float meanLevel(const float* samples, int frames, int channels, float gain) {
  if (!samples || frames <= 0) return 0;
  float sum = 0;
  for (int frame = 0; frame < frames; ++frame) sum += std::abs(samples[frame * channels]);
  const float level = sum / float(frames) * gain;
  return std::isfinite(level) ? std::min(level, 1.0F) : 0;
}

Bytes pickSamples(const float* samples, int frames, int channels, int sampleRate) {
  if (!samples || frames <= 0) return {};
  const double ratio = sampleRate / pickedRate;
  const auto count = size_t(frames / ratio);
  Bytes pcm(count * 2, '\0');
  for (size_t i = 0; i < count; ++i) {
    const auto index = int64_t(ratio * double(i));
    if (index >= frames) continue;
    const auto sample = uint16_t(toSample(samples[index * channels]));
    pcm[2 * i] = char(sample & 0xff);
    pcm[2 * i + 1] = char(sample >> 8);
  }
  return pcm;
}

PcmCollector::PcmCollector(Dispatch& dispatch)
    : queue_(dispatch.makeQueue("com.kestrin.pcmdata")) {}

void PcmCollector::append(Bytes pcm) {
  // Order on the queue is all that is needed: a reader's turn comes after every block before it.
  queue_->post([self = shared_from_this(), pcm = std::move(pcm)] {
    if (self->limit_ == 0) return;
    self->data_ += pcm;
    if (self->data_.size() > self->limit_) self->data_.erase(0, self->data_.size() - self->limit_);
  });
}

void PcmCollector::keepLast(size_t bytes) {
  queue_->post([self = shared_from_this(), bytes] {
    self->data_.clear();
    self->limit_ = bytes;
  });
}

void PcmCollector::keepAll(bool fresh) {
  queue_->post([self = shared_from_this(), fresh] {
    if (fresh) self->data_.clear();
    self->limit_ = std::numeric_limits<size_t>::max();
  });
}

Bytes PcmCollector::take() {
  Bytes taken;
  queue_->sync([&] {
    taken.swap(data_);
    limit_ = 0;
  });
  return taken;
}

}  // namespace kestrin
