#include "dictation/utf8_deliveries.h"

#include <simdjson.h>

#include "platform/text/text.h"

namespace kestrin {

void Utf8Deliveries::receive(std::string_view bytes, std::string& text) {
  if (!tail_.empty()) {
    // Bytes that do not complete the character cannot belong to it: they stand for themselves.
    const std::string joined = tail_ + std::string(bytes);
    tail_.clear();
    if (accept(joined, text)) return;
  }
  accept(bytes, text);
}

bool Utf8Deliveries::accept(std::string_view bytes, std::string& text) {
  const std::string_view whole = bytes.substr(0, bytes.size() - text::incompleteUtf8Tail(bytes));
  if (!simdjson::validate_utf8(whole.data(), whole.size())) return false;
  tail_ = bytes.substr(whole.size());
  text += whole;
  return true;
}

}  // namespace kestrin
