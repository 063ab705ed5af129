#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::text {

// All text is UTF-8. A "character" is what a person counts as one (an extended grapheme cluster);
// UTF-16 units are what accessibility and the tracked caret count in. Invalid bytes never crash:
// each counts as U+FFFD. All functions are thread-safe.

std::string lower(std::string_view text);
std::string upper(std::string_view text);
/// First letter of the text in upper case, the rest untouched.
std::string capitalizeFirst(std::string_view text);
/// White space and line ends removed at both ends (Unicode white space included).
std::string trim(std::string_view text);

size_t characterCount(std::string_view text);
/// The first / last `count` characters.
std::string prefix(std::string_view text, size_t count);
std::string suffix(std::string_view text, size_t count);

size_t utf16Length(std::string_view text);
size_t codePointCount(std::string_view text);
/// UTF-16 offset to code point offset and back within `text`; an offset inside a surrogate pair or
/// past the end is moved to the next boundary / the end.
size_t utf16ToCodePoints(std::string_view text, size_t utf16Offset);
size_t codePointsToUtf16(std::string_view text, size_t codePointOffset);
/// The part from UTF-16 offset `begin` up to `end` (clamped; never splits a code point).
std::string utf16Slice(std::string_view text, size_t begin, size_t end);

bool isValidUtf8(std::string_view bytes);
/// Invalid sequences replaced by U+FFFD.
std::string replaceInvalidUtf8(std::string_view bytes);
/// Length of an incomplete but so far valid UTF-8 sequence at the end of `bytes` (0 to 3): these
/// bytes may be completed by the next delivery.
size_t incompleteUtf8Tail(std::string_view bytes);

std::vector<std::string> split(std::string_view text, std::string_view separator);
std::string join(const std::vector<std::string>& parts, std::string_view separator);
/// Every literal, case-sensitive occurrence replaced.
std::string replaceAll(std::string text, std::string_view from, std::string_view to);
bool contains(std::string_view text, std::string_view part);
/// True when `text` contains any of `parts`, a range of strings or a braced list.
template <class Parts = std::initializer_list<std::string_view>>
bool containsAny(std::string_view text, const Parts& parts) {
  for (const std::string_view part : parts) {
    if (contains(text, part)) return true;
  }
  return false;
}

/// With that many decimals and always a point: "1.50". Not a number is "nan".
std::string fixed(double value, int decimals);

std::string base64Encode(std::string_view bytes);
/// Strict (RFC 4648, padding required); false when it does not decode.
bool base64Decode(std::string_view text, std::string& out);

}  // namespace kestrin::text
