#include "dictation/chunk_filter.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr std::array<std::string_view, 9> stopTokens{"<|eot_id|>", "<|end_of_text|>", "<|end|>",
                                                     "||eot_id|",  "||ot_id|",        "||eot_id||",
                                                     "||ot_id||",  "|eot_id|",        "|ot_id|"};
/// U+200B, U+200C, U+200D, U+FEFF.
constexpr std::array<std::string_view, 4> invisible{"\xE2\x80\x8B", "\xE2\x80\x8C", "\xE2\x80\x8D",
                                                    "\xEF\xBB\xBF"};

constexpr std::string_view emailFollows = "this email follows";
constexpr std::string_view sentFrom = "sent from my ";

/// Both lower-case markers are plain ASCII, and nothing outside ASCII turns into one of their
/// letters.
size_t findAnyCase(std::string_view text, std::string_view lowerCase) {
  const auto found =
      std::search(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                  [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
  return found == text.end() ? std::string_view::npos : static_cast<size_t>(found - text.begin());
}

bool mayHoldToken(std::string_view text) { return text.find('|') != std::string_view::npos; }
bool mayHoldInvisible(std::string_view text) {
  return text.find('\xE2') != std::string_view::npos || text.find('\xEF') != std::string_view::npos;
}

}  // namespace

std::string ChunkFilter::accept(std::string_view chunk) {
  if (suppressed_) return {};
  std::string text(chunk);
  if (mayHoldToken(text)) {
    for (const std::string_view token : stopTokens)
      text = text::replaceAll(std::move(text), token, "");
  }
  if (mayHoldInvisible(text)) {
    for (const std::string_view character : invisible)
      text = text::replaceAll(std::move(text), character, "");
  }
  size_t cut = std::string::npos;
  if (text.find("--") != std::string::npos) {
    for (const std::string_view marker : {"\n---", "\n--\n", "---\n"}) {
      cut = text.find(marker);
      if (cut != std::string::npos) break;
    }
  }
  for (const std::string_view marker : {emailFollows, sentFrom}) {
    if (cut != std::string::npos) break;
    // Sought in the chunk as it came; the place is that of the same words in the cleaned text.
    if (chunk.size() < marker.size() || findAnyCase(chunk, marker) == std::string_view::npos)
      continue;
    cut = std::min(findAnyCase(text, marker), text.size());
  }
  if (cut != std::string::npos) {
    suppressed_ = true;
    text.resize(cut);
  }
  return text;
}

std::optional<StopMarker> findStopMarker(std::string_view chunk) {
  const auto exact = [&](std::string_view marker) { return chunk.find(marker); };
  const auto anyCase = [&](std::string_view marker) {
    return chunk.size() < marker.size() ? std::string_view::npos : findAnyCase(chunk, marker);
  };
  const bool dashes = exact("--") != std::string_view::npos;
  const auto hit = [](size_t at) { return at != std::string_view::npos; };
  size_t at = std::string_view::npos;
  if (dashes && hit(at = exact("\n---"))) {
    return StopMarker{at,
                      "🧹 Suppressing further chunks: found compliance block delimiter (---)"};
  }
  if (hit(at = anyCase(emailFollows))) {
    return StopMarker{at,
                      "🧹 Suppressing further chunks: found meta line 'this email follows...'"};
  }
  if (hit(at = anyCase(sentFrom))) {
    return StopMarker{
        at, "🧹 Suppressing further chunks: found device footer 'sent from my ... device.'"};
  }
  if (dashes && hit(at = exact("\n--\n"))) {
    return StopMarker{at, "🧹 Suppressing further chunks: found divider (--)."};
  }
  if (dashes && hit(at = exact("---\n"))) {
    return StopMarker{at, "🧹 Suppressing further chunks: found divider (---\\n)."};
  }
  return std::nullopt;
}

}  // namespace kestrin
