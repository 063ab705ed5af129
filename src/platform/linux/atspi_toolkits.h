#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kestrin::atspi {

/// How a toolkit counts in its text interfaces. The bus's documentation leaves it open, and a wrong
/// unit corrupts in silence while the call returns true.
struct TextConvention {
  enum class Unit { codePoints, utf16 };
  enum class Length { utf8Bytes, utf16Units };
  Unit offsets = Unit::codePoints;
  Length length = Length::utf8Bytes;
  /// Whether an insert into a single-line field moves the caret to the end and replaces the whole
  /// text in two events.
  bool rewritesSingleLine = false;
  /// Whether some versions report an insert's offset less its length.
  bool mayShiftInsertEvents = false;
};

/// Toolkits whose editable-text interface was seen to work. Nothing for all others: browsers do not
/// offer it or do nothing and return true, and for an unknown toolkit no guess at the units is
/// safe.
std::optional<TextConvention> editingConvention(std::string_view toolkit);

/// Units of text offsets when reading; those of toolkits not seen yet are taken as code points.
TextConvention::Unit readingUnit(std::string_view toolkit);

/// The product's word for a role of the bus, by its number.
std::string roleWord(uint32_t role, bool multiLine);
/// The word for a role that has none of its own: "AX" and the bus's name without blanks.
std::string plainRoleWord(std::string_view busRoleName);

/// Role numbers that rules look at.
inline constexpr uint32_t roleDialog = 16;
inline constexpr uint32_t roleFrame = 23;
inline constexpr uint32_t rolePageTab = 37;
inline constexpr uint32_t rolePageTabList = 38;
inline constexpr uint32_t rolePassword = 40;
inline constexpr uint32_t roleWindow = 69;
inline constexpr uint32_t roleDocumentFrame = 82;
inline constexpr uint32_t roleLink = 88;
inline constexpr uint32_t roleDocumentWeb = 95;
inline constexpr uint32_t roleStatic = 116;

}  // namespace kestrin::atspi
