#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unicode/unistr.h>

#include "platform/accessibility.h"
#include "platform/linux/atspi_toolkits.h"

namespace kestrin::atspi {

/// A text-changed event as the program sent it, in the toolkit's units.
struct TextEvent {
  bool insertion = false;
  int offset = 0;
  int length = 0;
  std::string text;
};

/// A copy of one element's text, kept current by its change events, so that offsets can be
/// converted and our own changes told from the user's without asking the program again. Pure: no
/// bus, no threads.
class TextModel {
 public:
  TextModel(TextConvention convention, const std::string& text);

  std::string text() const;
  int utf16Length() const { return text_.length(); }
  /// Length in the toolkit's units, as its character count says.
  int unitLength() const { return toUnits(text_.length()); }
  /// Clamped to the text and never inside a surrogate pair.
  int clamp(int utf16Offset) const;
  int toUnits(int utf16Offset) const;
  int toUtf16(int units) const;

  /// Announces an insert of ours, so that its events are taken for it. Returns its number.
  uint64_t expect(int utf16Offset, const std::string& text);
  /// The announced insert did not and will not happen.
  void withdraw(uint64_t number);
  bool isExpected(uint64_t number) const;
  bool expectsAnything() const { return !expected_.empty(); }

  struct Effect {
    std::optional<TextChange> foreign;
    std::optional<uint64_t> own;  ///< the announced insert that has now happened
    bool unsure = false;  ///< the event can be read in two ways or none: read the text and `resync`
  };
  Effect apply(const TextEvent& event);
  /// Takes the text as read; what differs is somebody else's change unless it is an announced
  /// insert.
  Effect resync(const std::string& text);

 private:
  /// An insert as it was sent: the program counts from its own start, so later changes do not move
  /// it.
  struct Expected {
    uint64_t number;
    int units;
    icu::UnicodeString text;
  };
  /// What insert events say of their offset: known from the first echo of our own.
  enum class Offsets { unknown, start, startLessLength };

  int unitsOf(const icu::UnicodeString& text) const;
  int utf16In(const icu::UnicodeString& text, int units) const;
  Effect replaced(const icu::UnicodeString& before, const icu::UnicodeString& after);
  Effect inserted(int units, const icu::UnicodeString& text);
  Effect deleted(int units, int length);

  TextConvention convention_;
  Offsets offsets_;
  icu::UnicodeString text_;
  /// The text before a deletion of everything that may be the first half of a rewrite.
  std::optional<icu::UnicodeString> beforeRewrite_;
  std::deque<Expected> expected_;
  uint64_t lastNumber_ = 0;
};

}  // namespace kestrin::atspi
