#include "dictation/cursor_context.h"

#include <algorithm>

#include "dictation/web_editor_rules.h"
#include "platform/platform.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

using std::chrono::milliseconds;

/// An edit of the user's is over when nothing came for this long; measured on real editors, below
/// it inserts and keystrokes of the same moment get mixed up.
constexpr milliseconds quietTime{150};
constexpr milliseconds longestHold{1000};

constexpr int activationLooks = 11;

/// Browsers whose tabs the browser port can tell apart.
bool hasTabs(const std::string& bundleId, const std::string& appName) {
  return text::containsAny(text::lower(bundleId),
                           {"google-chrome", "com.google.chrome", "chromium", "firefox", "brave",
                            "vivaldi", "msedge", "microsoft-edge", "opera", "librewolf"}) ||
         text::containsAny(text::lower(appName), {"google chrome", "chromium", "firefox"});
}

int unitsOf(const std::string& text) { return static_cast<int>(text::utf16Length(text)); }

}  // namespace

InsertionPorts InsertionPorts::from(Platform& platform) {
  return {platform.dispatch, platform.random,     platform.workspace, platform.accessibility,
          platform.input,    platform.pasteboard, platform.browser};
}

CursorContext::CursorContext(InsertionPorts ports, Logger& logger, Target target)
    : requestId(std::move(target.requestId)),
      capturedAt(target.capturedAt),
      bundleId(std::move(target.bundleId)),
      appName(std::move(target.appName)),
      windowTitle(std::move(target.windowTitle)),
      windowNumber(target.windowNumber),
      processId(target.processId),
      ports_(ports),
      logger_(logger) {
  if (const auto pointer = ports_.input.pointer()) capturedMouseLocation_ = *pointer;
  isChrome_ = hasTabs(bundleId.value_or(""), appName);
  captureWindowAndElement();
  captureChromeTabIfNeeded();
}

void CursorContext::captureWindowAndElement() {
  if (const auto window = ports_.accessibility.focusedWindow(processId)) {
    capturedWindow_ = *window;
    const auto title = ports_.accessibility.title(*window);
    logger_.print(title && !title->empty() ? "📍 Captured window: '" + *title + "' in " + appName
                                           : "📍 Captured window in " + appName);
  } else {
    logger_.print("⚠️ Could not capture window in " + appName);
  }

  std::string toolkit;
  if (const auto element = ports_.accessibility.focusedElement(processId)) {
    focusedElement_ = *element;
    elementRole_ = ports_.accessibility.role(*element).value_or("");
    toolkit = ports_.accessibility.toolkit(*element).value_or("");
    logger_.print("📍 Captured focused element: " + elementRole_);
  } else {
    logger_.print("⚠️ Could not capture focused element in " + appName);
  }
  isLikelyWebEditor_ =
      kestrin::isLikelyWebEditor({elementRole_, toolkit, bundleId.value_or(""), appName});
  if (!focusedElement_) return;

  // The watch comes first: an edit between the two moves a caret that is already known, or none.
  if (!isLikelyWebEditor_ && !isSecureField()) {
    auto watch = ports_.accessibility.watchText(
        *focusedElement_, [caret = caret_, &clock = ports_.dispatch.clock()](TextChange change) {
          caret->follow(change, clock.steadyNow());
        });
    if (watch) watch_ = std::move(*watch);
  }
  if (const auto range = selectedTextRangeUTF16(*focusedElement_)) {
    const int index = range->location + range->length;
    {
      std::lock_guard lock(caret_->mutex);
      caret_->indexUTF16 = index;
    }
    logger_.print("📍 Captured initial cursor index: " + std::to_string(index) + " (utf16)");
  }
}

void CursorContext::captureChromeTabIfNeeded() {
  if (!isChrome_) return;
  const auto tab = ports_.browser.activeTab(processId);
  if (!tab) {
    logger_.print("⚠️ Chrome tab capture AppleScript error: " + tab.error().description);
    return;
  }
  if (tab->url.empty()) return;
  capturedChromeURL_ = tab->url;
  if (!tab->title.empty()) capturedChromeTitle_ = tab->title;
  logger_.print("🌐 Captured Chrome tab URL: " + text::prefix(tab->url, 80));
}

std::optional<TextRange> CursorContext::selectedTextRangeUTF16(const AxElement& element) const {
  const auto range = ports_.accessibility.selectedRange(element);
  if (!range) return std::nullopt;
  return TextRange{std::max(range->location, 0), std::max(range->length, 0)};
}

std::optional<int> CursorContext::cursorIndexUTF16() const {
  std::lock_guard lock(caret_->mutex);
  return caret_->indexUTF16;
}

/// Text that others put exactly at the caret stays behind it, so that the pieces of a dictation
/// stay together.
void CursorContext::TrackedCaret::follow(const TextChange& change, SteadyTime now) {
  std::lock_guard lock(mutex);
  lastForeignEdit = now;
  if (!indexUTF16 || change.offset >= *indexUTF16) return;
  const int removedBefore = std::min(change.removed, *indexUTF16 - change.offset);
  const bool caretWasRemoved = change.offset + change.removed > *indexUTF16;
  *indexUTF16 += (caretWasRemoved ? 0 : change.inserted) - removedBefore;
}

bool CursorContext::waitForQuietField() {
  Clock& clock = ports_.dispatch.clock();
  for (;;) {
    const SteadyTime now = clock.steadyNow();
    Duration quietFor = quietTime;
    {
      std::lock_guard lock(caret_->mutex);
      if (caret_->lastForeignEdit) quietFor = now - *caret_->lastForeignEdit;
    }
    if (quietFor >= quietTime) {
      holdStarted_.reset();
      return true;
    }
    if (!holdStarted_) holdStarted_ = now;
    const Duration held = now - *holdStarted_;
    if (held >= longestHold) return false;
    clock.sleep(std::min<Duration>(quietTime - quietFor, longestHold - held),
                "the user to leave the field alone");
  }
}

InsertResult CursorContext::insertText(const std::string& text) {
  if (!focusedElement_) {
    logger_.print("📍 No element captured for background insert");
    return InsertResult::refused;
  }
  if (!waitForQuietField()) {
    logger_.print("📍 " + appName + " is being edited, so the text is pasted at the end");
    return InsertResult::held;
  }
  logger_.print("📍 Attempting background insert into " + elementRole_ + "...");
  const AxElement& element = *focusedElement_;
  std::optional<int> refusedAt;

  // First: at the tracked caret, wherever the user's own caret is by now.
  if (const auto length = ports_.accessibility.textLength(element)) {
    const int caret = trackedCaretIn(element, *length);
    if (hasLostItsPlace(element, caret)) {
      logger_.print("📍 " + appName + " has changed unseen, so the text is pasted at the end");
      return InsertResult::held;
    }
    const InsertResult result = insertAt(element, caret, *length, text);
    if (result == InsertResult::inserted || result == InsertResult::unverified) {
      int index = 0;
      {
        // An edit that came meanwhile has moved the caret already.
        std::lock_guard lock(caret_->mutex);
        index = *caret_->indexUTF16 += unitsOf(text);
      }
      lastPiece_ = text;
      logger_.print("📍 ✅ Background insert via kAXValue + tracked cursor SUCCESS (cursor=" +
                    std::to_string(index) + ")");
    }
    if (result != InsertResult::refused) return result;
    logger_.print("📍 Background insert kAXValue failed (error: refused)");
    refusedAt = caret;
  }

  // Second: at the element's own caret. Third: in what has the focus inside a page or panel.
  InsertResult result = insertAtOwnCaret(element, text, refusedAt);
  if (result != InsertResult::refused) {
    logger_.print("📍 ✅ Background insert via kAXSelectedText SUCCESS");
    return result;
  }
  if (elementRole_ == "AXWebArea" || elementRole_ == "AXGroup") {
    if (const auto child = ports_.accessibility.focusedDescendant(element)) {
      result = insertAtOwnCaret(*child, text, std::nullopt);
      if (result != InsertResult::refused) {
        logger_.print("📍 ✅ Background insert via focused child SUCCESS");
        return result;
      }
    }
  }
  logger_.print("📍 Background insert failed (role: " + elementRole_ +
                ", selectedTextError: refused)");
  return InsertResult::refused;
}

/// The tracked caret, else the end of the selection, else the end of the text. Tracked from now on.
int CursorContext::trackedCaretIn(const AxElement& element, int length) {
  std::optional<TextRange> selection;
  if (!cursorIndexUTF16()) selection = selectedTextRangeUTF16(element);
  std::lock_guard lock(caret_->mutex);
  if (!caret_->indexUTF16) {
    caret_->indexUTF16 = selection ? selection->location + selection->length : length;
  }
  caret_->indexUTF16 = std::clamp(*caret_->indexUTF16, 0, length);
  return *caret_->indexUTF16;
}

/// Where nobody tells of foreign edits, the last piece must still stand before the caret.
bool CursorContext::hasLostItsPlace(const AxElement& element, int caret) {
  if (watch_ || lastPiece_.empty()) return false;
  const int begin = caret - unitsOf(lastPiece_);
  const auto before = ports_.accessibility.textRange(element, std::max(begin, 0), caret);
  return before && *before != lastPiece_;
}

InsertResult CursorContext::insertAtOwnCaret(const AxElement& element, const std::string& text,
                                             std::optional<int> alreadyRefusedAt) {
  const auto selection = selectedTextRangeUTF16(element);
  if (!selection) return InsertResult::refused;
  const int caret = selection->location + selection->length;
  if (caret == alreadyRefusedAt) return InsertResult::refused;
  return insertAt(element, caret, ports_.accessibility.textLength(element).value_or(-1), text);
}

InsertResult CursorContext::insertAt(const AxElement& element, int offset, int lengthBefore,
                                     const std::string& text) {
  switch (ports_.accessibility.insertText(element, offset, text)) {
    case InsertOutcome::delivered:
      return InsertResult::inserted;
    case InsertOutcome::refused:
      return InsertResult::refused;
    case InsertOutcome::unknown:
      unknownUnits_ = unitsOf(text);
      return InsertResult::unknown;
    case InsertOutcome::unverified:
      break;
  }
  const auto readBack = ports_.accessibility.textRange(element, offset, offset + unitsOf(text));
  if (readBack && *readBack == text) return InsertResult::inserted;
  const auto lengthAfter = ports_.accessibility.textLength(element);
  return lengthAfter && *lengthAfter == lengthBefore ? InsertResult::refused
                                                     : InsertResult::unverified;
}

InsertResult CursorContext::resolveUnknownInsert(Duration timeout) {
  if (unknownUnits_ == 0 || !focusedElement_) return InsertResult::refused;
  const InsertOutcome outcome = ports_.accessibility.lateOutcome(*focusedElement_, timeout);
  if (outcome == InsertOutcome::unknown) return InsertResult::unknown;
  if (outcome != InsertOutcome::refused) {
    std::lock_guard lock(caret_->mutex);
    if (caret_->indexUTF16) *caret_->indexUTF16 += unknownUnits_;
  }
  unknownUnits_ = 0;
  return outcome == InsertOutcome::refused ? InsertResult::refused : InsertResult::inserted;
}

bool CursorContext::raiseWindowOnly() {
  Clock& clock = ports_.dispatch.clock();
  const auto isInFront = [&] {
    const auto front = ports_.workspace.frontmostApplication();
    return front && front->pid == processId;
  };
  logger_.print("📍 Raising captured window ONLY in " + appName + "...");
  if (!ports_.workspace.application(processId)) {
    logger_.print("⚠️ Cannot find app with PID " + std::to_string(processId));
    return false;
  }
  ports_.workspace.activateApplication(processId);
  for (int look = 0; look < activationLooks && !isInFront(); ++look) {
    clock.sleep(milliseconds(20), "the application to come to the front");
  }
  const bool raised = windowNumber != 0 && ports_.workspace.activateWindow(windowNumber);
  if (!raised && !windowTitle.empty()) raiseWindowByTitle();
  clock.sleep(milliseconds(40), "the raised window");
  return isInFront();
}

bool CursorContext::raiseWindowByTitle() {
  std::vector<WindowInfo> ours;
  for (WindowInfo& window : ports_.workspace.windows()) {
    if (window.pid == processId) ours.push_back(std::move(window));
  }
  for (const WindowInfo& window : ours) {
    const bool alike = text::contains(window.title, windowTitle) ||
                       (!window.title.empty() && text::contains(windowTitle, window.title));
    if (alike && ports_.workspace.activateWindow(window.id)) return true;
  }
  return !ours.empty() && ports_.workspace.activateWindow(ours.front().id).has_value();
}

void CursorContext::restoreChromeTabIfNeeded() {
  if (!isChrome_ || !capturedChromeURL_) return;
  constexpr std::string_view documentMark = "/document/d/";
  std::string token = *capturedChromeURL_;
  if (const size_t at = token.find(documentMark); at != std::string::npos) {
    // The rest of a document's address changes while it is edited.
    token = token.substr(at + documentMark.size());
    token = token.substr(0, token.find('/'));
  }
  const auto found = ports_.browser.selectTab(processId, token, capturedChromeTitle_.value_or(""));
  logger_.print(found
                    ? "🌐 Restored Chrome tab for sticky insertion"
                    : "⚠️ Chrome tab restore AppleScript error: " + found.error().description);
}

bool CursorContext::hasFocus() const {
  if (!focusedElement_) return false;
  const auto now = ports_.accessibility.focusedElement(processId);
  return now && *now == *focusedElement_;
}

void CursorContext::clickAtCapturedCaretPoint() {
  if (!capturedMouseLocation_) return;
  SyntheticInput& input = ports_.input;
  Clock& clock = ports_.dispatch.clock();
  const Point target = *capturedMouseLocation_;
  const auto present = input.pointer();
  logger_.print("🖱️ Clicking captured caret point for web focus: (" +
                std::to_string(target.x) + ", " + std::to_string(target.y) + ")");
  if (!input.movePointer(target)) return;
  clock.sleep(milliseconds(20), "the pointer");
  const bool down = input.buttonDown(1).has_value();
  clock.sleep(milliseconds(30), "the click");
  if (down) input.buttonUp(1);
  clock.sleep(milliseconds(60), "the click's effect");
  if (present) input.movePointer(*present);
}

}  // namespace kestrin
