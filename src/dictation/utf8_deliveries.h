#pragma once

#include <string>
#include <string_view>

namespace kestrin {

/// Puts a text together that the network cut anywhere: an incomplete character at the end of a
/// delivery waits for the next one; a delivery with bytes that cannot be UTF-8 is dropped whole.
/// Not thread-safe.
class Utf8Deliveries {
 public:
  /// Appends what is complete by now to `text`.
  void receive(std::string_view bytes, std::string& text);
  /// Forgets the incomplete character.
  void clear() { tail_.clear(); }

 private:
  bool accept(std::string_view bytes, std::string& text);
  std::string tail_;
};

}  // namespace kestrin
