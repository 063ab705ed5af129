#include "platform/linux/atspi_text_model.h"

#include <algorithm>
#include <unicode/utf16.h>

namespace kestrin::atspi {
namespace {

icu::UnicodeString utf16(const std::string& text) {
  auto converted = icu::UnicodeString::fromUTF8(text);
  // Qt's events tell line ends as paragraph separators, its text and everybody else's as line
  // feeds.
  for (int i = 0; i < converted.length(); ++i) {
    if (converted[i] == 0x2028 || converted[i] == 0x2029) converted.setCharAt(i, u'\n');
  }
  return converted;
}

/// The smallest replacement that turns `before` into `after`, on whole code points.
TextChange difference(const icu::UnicodeString& before, const icu::UnicodeString& after) {
  const int shorter = std::min(before.length(), after.length());
  int prefix = 0;
  while (prefix < shorter && before[prefix] == after[prefix]) ++prefix;
  if (prefix > 0 && U16_IS_LEAD(before[prefix - 1])) --prefix;
  int suffix = 0;
  while (suffix < shorter - prefix &&
         before[before.length() - 1 - suffix] == after[after.length() - 1 - suffix]) {
    ++suffix;
  }
  if (suffix > 0 && U16_IS_TRAIL(before[before.length() - suffix])) --suffix;
  return {prefix, before.length() - prefix - suffix, after.length() - prefix - suffix};
}

}  // namespace

TextModel::TextModel(TextConvention convention, const std::string& text)
    : convention_(convention),
      offsets_(convention.mayShiftInsertEvents ? Offsets::unknown : Offsets::start),
      text_(utf16(text)) {}

std::string TextModel::text() const {
  std::string out;
  text_.toUTF8String(out);
  return out;
}

int TextModel::clamp(int utf16Offset) const {
  const int inside = std::clamp(utf16Offset, 0, text_.length());
  return inside < text_.length() ? text_.getChar32Start(inside) : inside;
}

int TextModel::unitsOf(const icu::UnicodeString& text) const {
  return convention_.offsets == TextConvention::Unit::utf16 ? text.length() : text.countChar32();
}

int TextModel::utf16In(const icu::UnicodeString& text, int units) const {
  return convention_.offsets == TextConvention::Unit::utf16
             ? std::clamp(units, 0, text.length())
             : text.moveIndex32(0, std::max(units, 0));
}

int TextModel::toUnits(int utf16Offset) const {
  return unitsOf(text_.tempSubStringBetween(0, clamp(utf16Offset)));
}

int TextModel::toUtf16(int units) const { return utf16In(text_, units); }

uint64_t TextModel::expect(int utf16Offset, const std::string& text) {
  expected_.push_back({++lastNumber_, toUnits(utf16Offset), utf16(text)});
  return lastNumber_;
}

void TextModel::withdraw(uint64_t number) {
  std::erase_if(expected_, [&](const Expected& e) { return e.number == number; });
}

bool TextModel::isExpected(uint64_t number) const {
  return std::any_of(expected_.begin(), expected_.end(),
                     [&](const Expected& e) { return e.number == number; });
}

TextModel::Effect TextModel::apply(const TextEvent& event) {
  const auto text = utf16(event.text);
  // Some events come without their text; then only reading tells what happened.
  if (event.insertion && unitsOf(text) != event.length) return {{}, {}, true};
  if (event.length == 0) return {};
  return event.insertion ? inserted(event.offset, text) : deleted(event.offset, event.length);
}

TextModel::Effect TextModel::inserted(int units, const icu::UnicodeString& text) {
  if (beforeRewrite_ && units == 0) {
    const auto before = *beforeRewrite_;
    beforeRewrite_.reset();
    return replaced(before, text);
  }
  const int length = unitsOf(text);
  for (const auto& own : expected_) {
    if (own.text != text) continue;
    const bool atStart = offsets_ != Offsets::startLessLength && units == own.units;
    const bool lessLength = offsets_ != Offsets::start && units == own.units - length;
    if (!atStart && !lessLength) continue;
    offsets_ = atStart ? Offsets::start : Offsets::startLessLength;
    text_.insert(toUtf16(own.units), text);
    Effect effect;
    effect.own = own.number;
    withdraw(own.number);
    return effect;
  }
  if (offsets_ == Offsets::unknown) return {{}, {}, true};
  const int start = offsets_ == Offsets::startLessLength ? units + length : units;
  if (start < 0 || start > unitLength()) return {{}, {}, true};
  const int at = toUtf16(start);
  text_.insert(at, text);
  return {TextChange{at, 0, text.length()}, {}, false};
}

TextModel::Effect TextModel::deleted(int units, int length) {
  if (units < 0 || units + length > unitLength()) return {{}, {}, true};
  if (convention_.rewritesSingleLine && expectsAnything() && length == unitLength()) {
    beforeRewrite_ = text_;
    text_.remove();
    return {};
  }
  const int at = toUtf16(units);
  const int end = toUtf16(units + length);
  text_.removeBetween(at, end);
  return {TextChange{at, end - at, 0}, {}, false};
}

TextModel::Effect TextModel::resync(const std::string& text) {
  const auto before = beforeRewrite_.value_or(text_);
  beforeRewrite_.reset();
  return replaced(before, utf16(text));
}

TextModel::Effect TextModel::replaced(const icu::UnicodeString& before,
                                      const icu::UnicodeString& after) {
  text_ = after;
  for (const auto& own : expected_) {
    auto wanted = before;
    wanted.insert(utf16In(before, own.units), own.text);
    if (wanted != after) continue;
    Effect effect;
    effect.own = own.number;
    withdraw(own.number);
    return effect;
  }
  if (before == after) return {};
  return {difference(before, after), {}, false};
}

}  // namespace kestrin::atspi
