#include "platform/files.h"

namespace kestrin {

std::string Random::uuid() {
  static constexpr std::string_view digits = "0123456789ABCDEF";
  Bytes raw = bytes(16);
  raw[6] = static_cast<char>((raw[6] & 0x0F) | 0x40);
  raw[8] = static_cast<char>((raw[8] & 0x3F) | 0x80);
  std::string out;
  for (size_t i = 0; i < raw.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
    out += digits[static_cast<unsigned char>(raw[i]) >> 4];
    out += digits[static_cast<unsigned char>(raw[i]) & 15];
  }
  return out;
}

}  // namespace kestrin
