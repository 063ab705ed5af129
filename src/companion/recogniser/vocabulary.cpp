#include "companion/recogniser/vocabulary.h"

#include <algorithm>
#include <optional>

#include "platform/text/text.h"

namespace kestrin::recogniser {

namespace {

constexpr size_t controlTokens = 3;
constexpr size_t longestPhrase = 32;
constexpr size_t leastRepeats = 4;
constexpr size_t leastTokens = 16;

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<char> byteToken(std::string_view piece) {
  if (piece.size() != 6 || !piece.starts_with("<0x") || piece[5] != '>') return std::nullopt;
  const int high = hexDigit(piece[3]);
  const int low = hexDigit(piece[4]);
  if (high < 0 || low < 0) return std::nullopt;
  return static_cast<char>(high * 16 + low);
}

}  // namespace

Result<Vocabulary> Vocabulary::parse(std::string_view lines) {
  Vocabulary vocabulary;
  std::vector<std::string> pieces = text::split(lines, "\n");
  if (!pieces.empty() && pieces.back().empty()) pieces.pop_back();
  if (pieces.size() <= controlTokens) return fail("Recogniser", 2, "The vocabulary is empty");
  for (std::string& piece : pieces) {
    if (const auto byte = byteToken(piece)) {
      vocabulary.pieces_.emplace_back(1, *byte);
    } else {
      vocabulary.pieces_.push_back(text::replaceAll(std::move(piece), "\u2581", " "));
    }
  }
  return vocabulary;
}

std::string Vocabulary::text(std::span<const int64_t> tokens) const {
  std::string out;
  for (const int64_t token : tokens) {
    const auto index = static_cast<size_t>(token);
    if (token >= static_cast<int64_t>(controlTokens) && index < pieces_.size())
      out += pieces_[index];
  }
  // A spelling that the training texts are full of and nobody wants today.
  out = text::replaceAll(text::replaceAll(std::move(out), "to-morrow", "tomorrow"), "To-morrow",
                         "Tomorrow");
  return text::trim(text::replaceInvalidUtf8(out));
}

size_t repeatedTail(std::span<const int64_t> tokens) {
  for (size_t phrase = 1; phrase <= longestPhrase; ++phrase) {
    size_t same = 0;  // tokens at the end that equal the one a phrase earlier
    while (same + phrase < tokens.size() &&
           tokens[tokens.size() - 1 - same] == tokens[tokens.size() - 1 - same - phrase]) {
      ++same;
    }
    const size_t total = same + phrase;
    if (total >= leastTokens && total / phrase >= leastRepeats) return same;
  }
  return 0;
}

}  // namespace kestrin::recogniser
