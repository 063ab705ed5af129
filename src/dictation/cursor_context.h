#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "platform/accessibility.h"
#include "platform/browser.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/pasteboard.h"
#include "platform/synthetic_input.h"
#include "platform/workspace.h"

namespace kestrin {

struct Platform;

/// What delivering text to another application needs.
struct InsertionPorts {
  Dispatch& dispatch;
  Random& random;
  Workspace& workspace;
  Accessibility& accessibility;
  SyntheticInput& input;
  Pasteboard& pasteboard;
  Browser& browser;

  static InsertionPorts from(Platform& platform);
};

enum class InsertResult {
  inserted,    ///< confirmed by the target
  unverified,  ///< taken by the target, which offers nothing to confirm it by
  refused,     ///< nothing changed: deliver by other means
  held,        ///< the user kept editing the field: deliver by other means
  unknown,     ///< timed out in the middle: it may still land, so it must not be repeated
};

/// The place where a dictation's text must land, as it was when the hold key went down, and how to
/// write there later. Everything is fixed at construction but the tracked caret, which moves with
/// each insertion and with what others edit before it. Construction and every operation may block
/// on other programs: off the main queue only, one operation at a time.
class CursorContext {
 public:
  struct Target {
    std::string requestId;
    Date capturedAt;
    std::optional<std::string> bundleId;  ///< desktop entry id
    std::string appName;
    std::string windowTitle;
    uint64_t windowNumber = 0;  ///< window id; 0 if unknown
    int processId = 0;          ///< 0 if unknown
  };

  /// Takes the deeper snapshot: window, focused element, caret, pointer, browser tab.
  CursorContext(InsertionPorts ports, Logger& logger, Target target);
  CursorContext(const CursorContext&) = delete;
  CursorContext& operator=(const CursorContext&) = delete;

  const std::string requestId;
  const Date capturedAt;
  const std::optional<std::string> bundleId;
  const std::string appName;
  const std::string windowTitle;
  const uint64_t windowNumber;
  const int processId;

  const std::optional<AxElement>& focusedElement() const { return focusedElement_; }
  const std::optional<AxElement>& capturedWindow() const { return capturedWindow_; }
  const std::string& elementRole() const { return elementRole_; }
  /// The tracked caret, in UTF-16 units.
  std::optional<int> cursorIndexUTF16() const;
  const std::optional<Point>& capturedMouseLocation() const { return capturedMouseLocation_; }
  const std::optional<std::string>& capturedChromeURL() const { return capturedChromeURL_; }
  const std::optional<std::string>& capturedChromeTitle() const { return capturedChromeTitle_; }

  /// Targets that do not take background insertion: text is pasted there once, at the end.
  bool isLikelyWebEditor() const { return isLikelyWebEditor_; }
  /// A browser whose tabs can be told apart and selected.
  bool isChrome() const { return isChrome_; }
  bool isTerminal() const { return elementRole_ == "AXTerminal"; }
  bool isSecureField() const { return elementRole_ == "AXSecureTextField"; }

  /// Writes `text` behind the last piece, without touching focus, selection or clipboard. Waits
  /// until the user has left the field alone for 150 ms, at most 1 s in one go of editing.
  InsertResult insertText(const std::string& text);
  /// After an insertion of unknown outcome: waits, at most `timeout`, until it is in the document
  /// (`inserted`) or certainly is not (`refused`); else it stays `unknown`.
  InsertResult resolveUnknownInsert(Duration timeout);

  /// Brings the captured window to the front, waiting for it; false when it is not in front
  /// afterwards.
  bool raiseWindowOnly();
  void restoreChromeTabIfNeeded();
  /// The captured element has the keyboard focus now.
  bool hasFocus() const;
  void clickAtCapturedCaretPoint();

 private:
  void captureWindowAndElement();
  void captureChromeTabIfNeeded();
  bool raiseWindowByTitle();
  bool waitForQuietField();
  std::optional<TextRange> selectedTextRangeUTF16(const AxElement& element) const;
  int trackedCaretIn(const AxElement& element, int length);
  bool hasLostItsPlace(const AxElement& element, int caret);
  InsertResult insertAtOwnCaret(const AxElement& element, const std::string& text,
                                std::optional<int> alreadyRefusedAt);
  /// `lengthBefore` in UTF-16 units, -1 if unknown.
  InsertResult insertAt(const AxElement& element, int offset, int lengthBefore,
                        const std::string& text);

  InsertionPorts ports_;
  Logger& logger_;
  std::optional<AxElement> focusedElement_;
  std::optional<AxElement> capturedWindow_;
  std::string elementRole_;
  std::optional<Point> capturedMouseLocation_;
  std::optional<std::string> capturedChromeURL_;
  std::optional<std::string> capturedChromeTitle_;
  bool isLikelyWebEditor_ = false;
  bool isChrome_ = false;

  /// What the watch of foreign edits changes, on any thread; it may outlive the context for a
  /// moment.
  struct TrackedCaret {
    std::mutex mutex;
    std::optional<int> indexUTF16;
    std::optional<SteadyTime> lastForeignEdit;

    void follow(const TextChange& change, SteadyTime now);
  };
  const std::shared_ptr<TrackedCaret> caret_ = std::make_shared<TrackedCaret>();
  std::string lastPiece_;
  int unknownUnits_ = 0;  ///< UTF-16 length of the insert whose outcome is unknown
  std::optional<SteadyTime> holdStarted_;
  SubscriptionHandle watch_;
};

}  // namespace kestrin
