#include <array>

#include "platform/text/text.h"

namespace kestrin::text {
namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<signed char, 256> makeValues() {
  std::array<signed char, 256> values{};
  for (auto& value : values) value = -1;
  for (size_t i = 0; i < alphabet.size(); ++i) {
    values[static_cast<unsigned char>(alphabet[i])] = static_cast<signed char>(i);
  }
  return values;
}

}  // namespace

std::string base64Encode(std::string_view bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t rest = bytes.size() - i;
    const auto byte = [&](size_t k) {
      return k < rest ? static_cast<uint32_t>(static_cast<unsigned char>(bytes[i + k])) : 0u;
    };
    const uint32_t group = byte(0) << 16 | byte(1) << 8 | byte(2);
    out += alphabet[group >> 18 & 63];
    out += alphabet[group >> 12 & 63];
    out += rest > 1 ? alphabet[group >> 6 & 63] : '=';
    out += rest > 2 ? alphabet[group & 63] : '=';
  }
  return out;
}

bool base64Decode(std::string_view text, std::string& out) {
  static constexpr auto values = makeValues();
  out.clear();
  if (text.size() % 4 != 0) return false;
  for (size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    const size_t padding = !last ? 0 : text[i + 2] == '=' ? 2 : text[i + 3] == '=' ? 1 : 0;
    if (padding == 2 && text[i + 3] != '=') return false;
    uint32_t group = 0;
    for (size_t k = 0; k < 4; ++k) {
      const signed char value =
          k >= 4 - padding ? 0 : values[static_cast<unsigned char>(text[i + k])];
      if (value < 0) return false;
      group = group << 6 | static_cast<uint32_t>(value);
    }
    out += static_cast<char>(group >> 16 & 255);
    if (padding < 2) out += static_cast<char>(group >> 8 & 255);
    if (padding < 1) out += static_cast<char>(group & 255);
  }
  return true;
}

}  // namespace kestrin::text
