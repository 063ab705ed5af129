#include "platform/linux/latin1.h"

#include <cstdint>

namespace kestrin {

std::string latin1FromUtf8(std::string_view utf8) {
  std::string out;
  for (size_t i = 0; i < utf8.size(); ++i) {
    const auto byte = static_cast<uint8_t>(utf8[i]);
    if (byte < 0x80) {
      out += utf8[i];
      continue;
    }
    size_t next = i + 1;
    while (next < utf8.size() && (static_cast<uint8_t>(utf8[next]) & 0xc0) == 0x80) ++next;
    // Two bytes that begin with C2 or C3 are the upper half of Latin-1.
    const bool known = (byte == 0xc2 || byte == 0xc3) && next == i + 2;
    out += known ? static_cast<char>(((byte & 3) << 6) | (utf8[i + 1] & 0x3f)) : '?';
    i = next - 1;
  }
  return out;
}

std::string utf8FromLatin1(std::string_view latin1) {
  std::string out;
  for (const char c : latin1) {
    const auto byte = static_cast<uint8_t>(c);
    if (byte < 0x80) {
      out += c;
    } else {
      out += static_cast<char>(0xc0 | (byte >> 6));
      out += static_cast<char>(0x80 | (byte & 0x3f));
    }
  }
  return out;
}

}  // namespace kestrin
