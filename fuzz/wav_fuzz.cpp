#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "platform/audio/wav.h"

/// Whatever the bytes, reading ends with an error or with whole frames of finite samples.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto sound = kestrin::wav::read(bytes);
  const auto mono = kestrin::wav::readMono(bytes);
  if (sound.has_value() != mono.has_value()) abort();
  if (!sound) return sound.error().description.empty() ? (abort(), 0) : 0;
  if (sound->frames() == 0 || sound->samples.size() % size_t(sound->channels) != 0) abort();
  for (const float sample : *mono)
    if (!std::isfinite(sample)) abort();
  const auto again = kestrin::wav::readPcm16(kestrin::wav::write(kestrin::wav::toPcm16(*mono)));
  if (!again || *again != kestrin::wav::toPcm16(*mono)) abort();
  return 0;
}
