#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "platform/result.h"

namespace kestrin {

/// An accessible object of another program. A value that may outlive the object: calls on it then
/// fail.
struct AxElement {
  std::string bus;   ///< connection of the program on the accessibility bus
  std::string path;  ///< object path

  bool valid() const { return !path.empty(); }
  bool operator==(const AxElement&) const = default;
};

/// UTF-16 units.
struct TextRange {
  int location = 0;
  int length = 0;
  bool operator==(const TextRange&) const = default;
};

enum class InsertOutcome {
  delivered,   ///< confirmed by the target (its own change event or its content)
  unverified,  ///< the target took it and offers nothing to confirm it by
  refused,     ///< nothing was changed: safe to deliver by other means
  unknown,     ///< timed out or died in the middle: it may still land, so never repeat it blindly
};

/// A change of a watched text that we did not make. UTF-16 units.
struct TextChange {
  int offset = 0;
  int removed = 0;
  int inserted = 0;
  bool operator==(const TextChange&) const = default;
};

/// The accessibility interface of other programs. Every call may block up to its deadline (2 s at
/// most), so call it off the main queue. Thread-safe. Errors: domain "Accessibility".
///
/// Roles are given in the product's words: "AXTextField", "AXTextArea", "AXComboBox",
/// "AXSearchField", "AXSecureTextField", "AXWebArea", "AXGroup", "AXTerminal", "AXWindow",
/// "AXButton", ... ; a role without a word of its own reads "AX" plus the bus's role name without
/// blanks.
class Accessibility {
 public:
  virtual ~Accessibility() = default;

  /// Whether the accessibility bus answers; the error says what is missing.
  virtual Status available() = 0;

  virtual Result<AxElement> focusedWindow(int pid) = 0;
  /// The element with the keyboard focus in that program (the focused and, where there are several,
  /// the editable one).
  virtual Result<AxElement> focusedElement(int pid) = 0;
  /// The focused descendant of a document or panel.
  virtual Result<AxElement> focusedDescendant(const AxElement& root) = 0;

  virtual Result<std::string> role(const AxElement& element) = 0;
  virtual Result<std::string> title(const AxElement& element) = 0;
  /// Toolkit name of the element's program: "gtk", "GTK", "Qt", "Gecko", "Chromium", ...; may be
  /// empty.
  virtual Result<std::string> toolkit(const AxElement& element) = 0;
  /// Whole text. Fails when the element has no text.
  virtual Result<std::string> value(const AxElement& element) = 0;
  /// Part of the text, by UTF-16 offsets, without fetching the rest.
  virtual Result<std::string> textRange(const AxElement& element, int begin, int end) = 0;
  virtual Result<int> textLength(const AxElement& element) = 0;
  /// The selection, or the caret as an empty range.
  virtual Result<TextRange> selectedRange(const AxElement& element) = 0;
  virtual Result<std::string> selectedText(const AxElement& element) = 0;
  /// Whether the element offers editable text and is enabled.
  virtual Result<bool> isEditable(const AxElement& element) = 0;

  /// Inserts at a UTF-16 offset without moving focus, and leaves the user's caret and selection
  /// alone (puts them back where the toolkit moves them). Confirms the result: see InsertOutcome.
  /// The error of an unreachable target maps to `refused` or `unknown`.
  virtual InsertOutcome insertText(const AxElement& element, int offset,
                                   const std::string& text) = 0;

  /// After an insert that ended `unknown`: waits, at most `timeout`, until its end is known.
  /// `delivered` once its own change event came, `refused` once the program is gone (or nothing is
  /// outstanding), else still `unknown`.
  virtual InsertOutcome lateOutcome(const AxElement& element, Duration timeout) = 0;

  /// Calls back, on any thread, for each change of the element's text that `insertText` of this
  /// process did not make.
  virtual Result<SubscriptionHandle> watchText(const AxElement& element,
                                               std::function<void(TextChange)> onForeignChange) = 0;
};

}  // namespace kestrin
