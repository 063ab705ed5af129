#include "cli/printable.h"

namespace kestrin::cli {

std::string printable(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // U+0080 to U+009F are control characters of two bytes.
    if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0) {
      ++i;
    } else if (byte == '\n' || byte == '\t' || (byte >= 0x20 && byte != 0x7F)) {
      out += text[i];
    }
  }
  return out;
}

}  // namespace kestrin::cli
