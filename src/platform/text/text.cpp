#include "platform/text/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

namespace kestrin::text {
namespace {

icu::UnicodeString toUtf16(std::string_view text) {
  return icu::UnicodeString::fromUTF8(
      icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

std::string toUtf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

/// Decodes the code point at `i` and moves `i` behind it; an invalid byte reads as U+FFFD.
UChar32 nextCodePoint(std::string_view text, size_t& i) {
  UChar32 c = 0;
  auto at = static_cast<int32_t>(i);
  U8_NEXT_OR_FFFD(text.data(), at, static_cast<int32_t>(text.size()), c);
  i = static_cast<size_t>(at);
  return c;
}

bool isPlainAscii(std::string_view text) {
  // CR LF is one character, so a text that holds CR takes the long way.
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80 && c != '\r'; });
}

/// One iterator a thread: making the first costs milliseconds.
icu::BreakIterator& characterIterator() {
  thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
    UErrorCode status = U_ZERO_ERROR;
    return std::unique_ptr<icu::BreakIterator>(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  }();
  return *iterator;
}

/// Byte offsets of all character boundaries, 0 and the end included.
std::vector<size_t> characterBoundaries(std::string_view text) {
  std::vector<size_t> out;
  UErrorCode status = U_ZERO_ERROR;
  UText utext = UTEXT_INITIALIZER;
  utext_openUTF8(&utext, text.data(), static_cast<int64_t>(text.size()), &status);
  auto& iterator = characterIterator();
  iterator.setText(&utext, status);
  for (int32_t at = iterator.first(); at != icu::BreakIterator::DONE; at = iterator.next()) {
    out.push_back(static_cast<size_t>(at));
  }
  utext_close(&utext);
  return out;
}

/// Byte offset that stands `units` UTF-16 units into the text (clamped, on a boundary).
size_t byteAtUtf16(std::string_view text, size_t units) {
  size_t i = 0;
  size_t seen = 0;
  while (i < text.size() && seen < units) seen += U16_LENGTH(nextCodePoint(text, i));
  return i;
}

}  // namespace

std::string lower(std::string_view text) { return toUtf8(toUtf16(text).toLower("")); }
std::string upper(std::string_view text) { return toUtf8(toUtf16(text).toUpper("")); }

std::string capitalizeFirst(std::string_view text) {
  if (text.empty()) return {};
  size_t end = 0;
  nextCodePoint(text, end);
  return upper(text.substr(0, end)) + std::string(text.substr(end));
}

std::string trim(std::string_view text) {
  size_t begin = 0;
  while (begin < text.size()) {
    size_t next = begin;
    if (!u_isUWhiteSpace(nextCodePoint(text, next))) break;
    begin = next;
  }
  auto end = static_cast<int32_t>(text.size());
  while (end > static_cast<int32_t>(begin)) {
    int32_t previous = end;
    UChar32 c = 0;
    U8_PREV_OR_FFFD(text.data(), static_cast<int32_t>(begin), previous, c);
    if (!u_isUWhiteSpace(c)) break;
    end = previous;
  }
  return std::string(text.substr(begin, static_cast<size_t>(end) - begin));
}

size_t characterCount(std::string_view text) {
  if (isPlainAscii(text)) return text.size();
  return characterBoundaries(text).size() - 1;
}

std::string prefix(std::string_view text, size_t count) {
  if (isPlainAscii(text)) return std::string(text.substr(0, count));
  const auto boundaries = characterBoundaries(text);
  if (count + 1 >= boundaries.size()) return std::string(text);
  return std::string(text.substr(0, boundaries[count]));
}

std::string suffix(std::string_view text, size_t count) {
  if (isPlainAscii(text))
    return std::string(text.substr(text.size() - std::min(count, text.size())));
  const auto boundaries = characterBoundaries(text);
  if (count + 1 >= boundaries.size()) return std::string(text);
  return std::string(text.substr(boundaries[boundaries.size() - 1 - count]));
}

size_t utf16Length(std::string_view text) {
  size_t units = 0;
  for (size_t i = 0; i < text.size();) units += U16_LENGTH(nextCodePoint(text, i));
  return units;
}

size_t codePointCount(std::string_view text) {
  size_t count = 0;
  for (size_t i = 0; i < text.size(); ++count) nextCodePoint(text, i);
  return count;
}

size_t utf16ToCodePoints(std::string_view text, size_t utf16Offset) {
  return codePointCount(text.substr(0, byteAtUtf16(text, utf16Offset)));
}

size_t codePointsToUtf16(std::string_view text, size_t codePointOffset) {
  size_t units = 0;
  size_t seen = 0;
  for (size_t i = 0; i < text.size() && seen < codePointOffset; ++seen) {
    units += U16_LENGTH(nextCodePoint(text, i));
  }
  return units;
}

std::string utf16Slice(std::string_view text, size_t begin, size_t end) {
  if (end <= begin) return {};
  const size_t from = byteAtUtf16(text, begin);
  const size_t to = byteAtUtf16(text, end);
  return std::string(text.substr(from, to - from));
}

bool isValidUtf8(std::string_view bytes) {
  const auto length = static_cast<int32_t>(bytes.size());
  for (int32_t i = 0; i < length;) {
    UChar32 c = 0;
    U8_NEXT(bytes.data(), i, length, c);
    if (c < 0) return false;
  }
  return true;
}

std::string replaceInvalidUtf8(std::string_view bytes) {
  if (isValidUtf8(bytes)) return std::string(bytes);
  return toUtf8(toUtf16(bytes));
}

size_t incompleteUtf8Tail(std::string_view bytes) {
  for (size_t tail = 1; tail <= std::min<size_t>(3, bytes.size()); ++tail) {
    const auto lead = static_cast<unsigned char>(bytes[bytes.size() - tail]);
    if ((lead & 0xC0) == 0x80) continue;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    const size_t needed = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (tail >= needed) return 0;
    if (tail >= 2) {
      // The second byte alone tells overlong forms, surrogates and values past the last code point.
      const auto second = static_cast<unsigned char>(bytes[bytes.size() - tail + 1]);
      if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
          (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F)) {
        return 0;
      }
    }
    return tail;
  }
  return 0;
}

std::vector<std::string> split(std::string_view text, std::string_view separator) {
  std::vector<std::string> out;
  size_t begin = 0;
  for (;;) {
    const size_t at = separator.empty() ? std::string_view::npos : text.find(separator, begin);
    if (at == std::string_view::npos) break;
    out.emplace_back(text.substr(begin, at - begin));
    begin = at + separator.size();
  }
  out.emplace_back(text.substr(begin));
  return out;
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += separator;
    out += parts[i];
  }
  return out;
}

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
  if (from.empty()) return text;
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

std::string fixed(double value, int decimals) {
  // The largest number has 309 digits before the point.
  std::array<char, 400> out;
  const auto written =
      std::to_chars(out.data(), out.data() + out.size(), value, std::chars_format::fixed, decimals);
  return {out.data(), written.ptr};
}

}  // namespace kestrin::text
