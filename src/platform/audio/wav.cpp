#include "platform/audio/wav.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <optional>

namespace kestrin::wav {
namespace {

constexpr int maxChannels = 32;
constexpr int minRate = 1000;
constexpr int maxRate = 384000;
/// Programs that write to a pipe leave a size of about 2 or 4 GiB behind.
constexpr uint32_t streamedSize = 0x7fff0000;
/// Some writers count headers into the data; that is no lost sound.
constexpr size_t forgivenShortfall = 64;

constexpr uint16_t formatPcm = 1;
constexpr uint16_t formatFloat = 3;
constexpr uint16_t formatExtensible = 0xfffe;

template <class T>
T little(std::string_view bytes, size_t at) {
  T value = 0;
  for (size_t i = 0; i < sizeof(T); ++i) value = T(value | T(T(uint8_t(bytes[at + i])) << (8 * i)));
  return value;
}

template <class T>
void appendLittle(Bytes& bytes, T value) {
  for (size_t i = 0; i < sizeof(T); ++i) bytes += char(value >> (8 * i));
}

struct Format {
  uint16_t tag = 0;
  int channels = 0;
  int sampleRate = 0;
  int bits = 0;

  size_t sampleBytes() const { return size_t(bits) / 8; }
  size_t frameBytes() const { return sampleBytes() * size_t(channels); }
};

Result<Format> parseFormat(std::string_view chunk) {
  if (chunk.size() < 16)
    return fail("WAV", notWav, "The WAV file's format description is incomplete.");
  Format format;
  format.tag = little<uint16_t>(chunk, 0);
  format.channels = little<uint16_t>(chunk, 2);
  const auto rate = little<uint32_t>(chunk, 4);
  // The container's size; the valid bits of an extensible format lie in its upper bits.
  format.bits = little<uint16_t>(chunk, 14);
  if (format.tag == formatExtensible && chunk.size() >= 26)
    format.tag = little<uint16_t>(chunk, 24);

  const bool pcm = format.tag == formatPcm && (format.bits == 8 || format.bits == 16 ||
                                               format.bits == 24 || format.bits == 32);
  const bool floats = format.tag == formatFloat && (format.bits == 32 || format.bits == 64);
  if (!pcm && !floats)
    return fail("WAV", unsupportedFormat,
                "The WAV file's encoding (" + std::to_string(format.tag) + ", " +
                    std::to_string(format.bits) + " bits) is not supported.");
  if (format.channels < 1 || format.channels > maxChannels)
    return fail("WAV", unsupportedFormat,
                "The WAV file has " + std::to_string(format.channels) + " channels.");
  if (rate < minRate || rate > maxRate)
    return fail("WAV", unsupportedFormat,
                "The WAV file's sample rate of " + std::to_string(rate) + " Hz is not supported.");
  format.sampleRate = int(rate);
  return format;
}

struct Data {
  std::string_view bytes;
  size_t declared = 0;  ///< what the file says it holds, as far as it knows
};

/// The data chunk that begins at `at`. A size that was never filled in means "the rest of the
/// file".
Data takeData(std::string_view file, size_t at, uint32_t declared) {
  const size_t there = file.size() - at;
  const bool riffFits = size_t(little<uint32_t>(file, 4)) + 8 == file.size();
  if (declared >= streamedSize || (declared == 0 && !riffFits)) return {file.substr(at), there};
  return {file.substr(at, std::min<size_t>(declared, there)), declared};
}

float decodeSample(const Format& format, std::string_view data, size_t at) {
  if (format.tag == formatFloat) {
    const double value = format.bits == 32 ? std::bit_cast<float>(little<uint32_t>(data, at))
                                           : std::bit_cast<double>(little<uint64_t>(data, at));
    // A hostile file may hold anything; what is no number is silence.
    return std::isfinite(value) ? float(std::clamp(value, -16.0, 16.0)) : 0.0F;
  }
  switch (format.bits) {
    case 8:
      return float(int(uint8_t(data[at])) - 128) / 128.0F;
    case 16:
      return float(int16_t(little<uint16_t>(data, at))) / 32768.0F;
    case 24: {
      const auto raw = uint32_t(uint8_t(data[at])) << 8 | uint32_t(uint8_t(data[at + 1])) << 16 |
                       uint32_t(uint8_t(data[at + 2])) << 24;
      return float(int32_t(raw)) / 2147483648.0F;
    }
    default:
      return float(int32_t(little<uint32_t>(data, at))) / 2147483648.0F;
  }
}

Result<Sound> decode(const Format& format, const Data& data) {
  const size_t frames = data.bytes.size() / format.frameBytes();
  if (frames == 0) return fail("WAV", noAudio, "The WAV file holds no audio.");
  if (data.declared > data.bytes.size() + forgivenShortfall)
    return fail("WAV", cutShort,
                "The WAV file is cut short: " + std::to_string(data.bytes.size()) + " of " +
                    std::to_string(data.declared) + " bytes of audio are there.");
  Sound sound;
  sound.sampleRate = format.sampleRate;
  sound.channels = format.channels;
  sound.samples.resize(frames * size_t(format.channels));
  for (size_t i = 0; i < sound.samples.size(); ++i)
    sound.samples[i] = decodeSample(format, data.bytes, i * format.sampleBytes());
  return sound;
}

/// One windowed-sinc filter per position between two input samples.
class SincFilter {
 public:
  SincFilter(int fromRate, int toRate, int phases) : phases_(phases) {
    const double cutoff = std::min(1.0, double(toRate) / fromRate) * 0.95;
    half_ = int(std::ceil(zeroCrossings / cutoff));
    taps_.resize(size_t(phases) * size_t(width()));
    for (int phase = 0; phase < phases; ++phase) {
      float* row = &taps_[size_t(phase) * size_t(width())];
      double sum = 0;
      for (int tap = 0; tap < width(); ++tap) {
        const double x = tap - (half_ - 1) - double(phase) / phases;
        const double window = 0.5 + 0.5 * std::cos(M_PI * std::clamp(x / half_, -1.0, 1.0));
        const double sinc = x == 0 ? 1 : std::sin(M_PI * cutoff * x) / (M_PI * cutoff * x);
        row[tap] = float(sinc * window);
        sum += sinc * window;
      }
      for (int tap = 0; tap < width(); ++tap) row[tap] = float(row[tap] / sum);
    }
  }

  /// The value `phase` of `phases` after sample `index`.
  float at(std::span<const float> samples, ptrdiff_t index, int phase) const {
    const float* row = &taps_[size_t(phase) * size_t(width())];
    const ptrdiff_t first = index - (half_ - 1);
    const ptrdiff_t begin = std::max<ptrdiff_t>(0, -first);
    const ptrdiff_t end = std::min<ptrdiff_t>(width(), ptrdiff_t(samples.size()) - first);
    float value = 0;
    for (ptrdiff_t tap = begin; tap < end; ++tap) value += samples[size_t(first + tap)] * row[tap];
    return value;
  }

  int phases() const { return phases_; }

 private:
  static constexpr double zeroCrossings = 16;
  int width() const { return 2 * half_; }

  int phases_;
  int half_ = 0;
  std::vector<float> taps_;
};

}  // namespace

Result<Sound> read(std::string_view bytes) {
  if (bytes.empty()) return fail("WAV", noAudio, "The WAV file is empty.");
  if (bytes.size() < 12 || (bytes.substr(0, 4) != "RIFF" && bytes.substr(0, 4) != "RF64") ||
      bytes.substr(8, 4) != "WAVE")
    return fail("WAV", notWav, "This is not a WAV file.");

  std::optional<Format> format;
  size_t at = 12;
  while (at + 8 <= bytes.size()) {
    const std::string_view id = bytes.substr(at, 4);
    const auto size = little<uint32_t>(bytes, at + 4);
    at += 8;
    if (id == "fmt ") {
      auto parsed = parseFormat(bytes.substr(at, size));
      if (!parsed) return fail(parsed.error());
      format = *parsed;
    } else if (id == "data") {
      if (!format) return fail("WAV", notWav, "The WAV file's format description is missing.");
      return decode(*format, takeData(bytes, at, size));
    }
    // Chunks are padded to even sizes; a writer that forgot shows the next name at once.
    const bool padded = size % 2 != 0 && at + size < bytes.size() && bytes[at + size] == 0;
    at += size_t(size) + (padded ? 1 : 0);
  }
  return fail("WAV", format ? noAudio : notWav,
              format ? "The WAV file holds no audio." : "The WAV file is cut short.");
}

Result<std::vector<float>> readMono(std::string_view bytes, int sampleRate) {
  auto sound = read(bytes);
  if (!sound) return fail(sound.error());
  return resample(toMono(*sound), sound->sampleRate, sampleRate);
}

Result<Bytes> readPcm16(std::string_view bytes, int sampleRate) {
  auto mono = readMono(bytes, sampleRate);
  if (!mono) return fail(mono.error());
  return toPcm16(*mono);
}

Bytes write(std::string_view pcm16, int sampleRate, int channels) {
  const auto blockAlign = uint16_t(channels * 2);
  Bytes file;
  file.reserve(44 + pcm16.size());
  file += "RIFF";
  appendLittle(file, uint32_t(36 + pcm16.size()));
  file += "WAVEfmt ";
  appendLittle(file, uint32_t(16));
  appendLittle(file, formatPcm);
  appendLittle(file, uint16_t(channels));
  appendLittle(file, uint32_t(sampleRate));
  appendLittle(file, uint32_t(sampleRate) * blockAlign);
  appendLittle(file, blockAlign);
  appendLittle(file, uint16_t(16));
  file += "data";
  appendLittle(file, uint32_t(pcm16.size()));
  file += pcm16;
  return file;
}

std::vector<float> toMono(const Sound& sound) {
  if (sound.channels == 1) return sound.samples;
  std::vector<float> mono(sound.frames());
  for (size_t frame = 0; frame < mono.size(); ++frame) {
    float sum = 0;
    for (int channel = 0; channel < sound.channels; ++channel)
      sum += sound.samples[frame * size_t(sound.channels) + size_t(channel)];
    mono[frame] = sum / float(sound.channels);
  }
  return mono;
}

std::vector<float> resample(std::span<const float> samples, int fromRate, int toRate) {
  if (fromRate == toRate || fromRate <= 0 || toRate <= 0 || samples.empty())
    return {samples.begin(), samples.end()};
  // Exact positions repeat after toRate / gcd outputs; past 512 the nearest of 512 is inaudible.
  const int exactPhases = toRate / std::gcd(fromRate, toRate);
  const SincFilter filter(fromRate, toRate, std::min(exactPhases, 512));
  std::vector<float> out(size_t(
      (uint64_t(samples.size()) * uint64_t(toRate) + uint64_t(fromRate) - 1) / uint64_t(fromRate)));
  for (size_t i = 0; i < out.size(); ++i) {
    const uint64_t position = uint64_t(i) * uint64_t(fromRate);
    const auto rest = int64_t(position % uint64_t(toRate));
    out[i] = filter.at(samples, ptrdiff_t(position / uint64_t(toRate)),
                       int(rest * filter.phases() / toRate));
  }
  return out;
}

Bytes toPcm16(std::span<const float> samples) {
  Bytes pcm(samples.size() * 2, '\0');
  for (size_t i = 0; i < samples.size(); ++i) {
    const float scaled = std::isfinite(samples[i]) ? samples[i] * 32768.0F : 0.0F;
    const auto value = uint16_t(int16_t(std::lrint(std::clamp(scaled, -32768.0F, 32767.0F))));
    pcm[2 * i] = char(value & 0xff);
    pcm[2 * i + 1] = char(value >> 8);
  }
  return pcm;
}

std::vector<float> fromPcm16(std::string_view pcm16) {
  std::vector<float> samples(pcm16.size() / 2);
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] = float(int16_t(little<uint16_t>(pcm16, 2 * i))) / 32768.0F;
  return samples;
}

}  // namespace kestrin::wav
