#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "platform/bytes.h"
#include "platform/result.h"

namespace kestrin::wav {

// All functions are thread-safe and never throw. Errors: domain "WAV".

enum ErrorCode { notWav = 1, unsupportedFormat = 2, noAudio = 3, cutShort = 4 };

/// The rate of everything that speech is recognised from.
constexpr int speechSampleRate = 16000;

/// Decoded sound, -1 to 1, channels interleaved.
struct Sound {
  int sampleRate = 0;
  int channels = 0;
  std::vector<float> samples;

  size_t frames() const { return channels > 0 ? samples.size() / channels : 0; }
  double seconds() const { return sampleRate > 0 ? double(frames()) / sampleRate : 0; }
};

/// Reads PCM of 8, 16, 24 or 32 bits and floats of 32 or 64 bits, plain or extensible, up to 32
/// channels and from 1,000 to 384,000 Hz. Forgives what writers get wrong: unknown chunks, missing
/// padding, a RIFF size that does not fit, and a data size that was never filled in because the
/// file was streamed. A file without a single frame, or one that holds clearly less sound than it
/// declares, is an error.
Result<Sound> read(std::string_view bytes);

/// As `read`, mixed down and resampled to mono at `sampleRate`.
Result<std::vector<float>> readMono(std::string_view bytes, int sampleRate = speechSampleRate);

/// As `readMono`, as signed 16-bit little-endian samples.
Result<Bytes> readPcm16(std::string_view bytes, int sampleRate = speechSampleRate);

/// A WAV file around signed 16-bit little-endian samples.
Bytes write(std::string_view pcm16, int sampleRate = speechSampleRate, int channels = 1);

/// The mean of all channels.
std::vector<float> toMono(const Sound& sound);

/// Band-limited resampling of one channel.
std::vector<float> resample(std::span<const float> samples, int fromRate, int toRate);

/// Rounded and clamped; what is not finite becomes silence. Exact inverse of `fromPcm16`.
Bytes toPcm16(std::span<const float> samples);
/// An odd last byte is dropped.
std::vector<float> fromPcm16(std::string_view pcm16);

}  // namespace kestrin::wav
