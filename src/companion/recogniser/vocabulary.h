#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/result.h"

namespace kestrin::recogniser {

/// The words' pieces that a decoder's token numbers stand for.
class Vocabulary {
 public:
  static constexpr int64_t startToken = 1;
  static constexpr int64_t endToken = 2;

  /// One token a line; U+2581 stands for a blank, <0xNN> for a byte. Error: domain "Recogniser",
  /// code 2.
  static Result<Vocabulary> parse(std::string_view lines);

  /// The text of a token sequence. Control tokens and numbers outside the vocabulary say nothing;
  /// bytes that form no UTF-8 become U+FFFD.
  std::string text(std::span<const int64_t> tokens) const;

 private:
  std::vector<std::string> pieces_;
};

/// Length of the tail that goes round in circles: the last tokens repeat one phrase at least four
/// times over at least sixteen tokens. People repeat words, but not so. 0 when there is none;
/// otherwise the number of tokens that can be taken away so that the phrase stays once.
size_t repeatedTail(std::span<const int64_t> tokens);

}  // namespace kestrin::recogniser
