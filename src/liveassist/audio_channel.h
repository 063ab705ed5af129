#pragma once

#include <string>

namespace kestrin {

/// Who is heard: `system` is the other side of a conversation, `microphone` the user.
enum class LAAudioChannel { system, microphone };

/// "system", "microphone".
inline std::string rawValue(LAAudioChannel channel) {
  return channel == LAAudioChannel::system ? "system" : "microphone";
}

/// Segments are 16 kHz, mono, signed 16-bit little-endian.
constexpr double segmentBytesPerSecond = 32000.0;

}  // namespace kestrin
