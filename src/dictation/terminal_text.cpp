#include "dictation/terminal_text.h"

#include "platform/text/text.h"

namespace kestrin {

std::string textForTerminal(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
    if (byte == 0xc2 && next >= 0x80 && next <= 0x9f) {
      plain += ' ';
      ++i;
    } else {
      plain += byte < 0x20 || byte == 0x7f ? ' ' : text[i];
    }
  }
  return text::trim(plain);
}

}  // namespace kestrin
