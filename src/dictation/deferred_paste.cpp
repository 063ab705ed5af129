#include "dictation/deferred_paste.h"

#include <algorithm>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* logSource = "Streaming";
constexpr int clipboardAttempts = 2;
/// A slow program may take its time after the usual wait before the paste counts as failed.
constexpr int extraLooks = 10;
constexpr int extraLookMs = 50;

/// Elements whose own text is all there is to read; in pages and panels the text lies further down.
bool isPlainTextField(const std::string& role) {
  return role == "AXTextField" || role == "AXTextArea" || role == "AXComboBox" ||
         role == "AXSearchField";
}

}  // namespace

void DeferredPaste::pause(int milliseconds, const char* why) {
  ports_.dispatch.clock().sleep(std::chrono::milliseconds(milliseconds), why);
}

PasteResult DeferredPaste::performDeferredPaste(const std::string& text, CursorContext& context) {
  if (context.isChrome()) {
    context.restoreChromeTabIfNeeded();
    pause(80, "the browser's tab");
  }
  if (ports_.workspace.application(context.processId)) {
    ports_.workspace.activateApplication(context.processId);
  }
  const bool isInFront = context.raiseWindowOnly();
  pause(80, "the raised window");
  const std::string hindrance = obstacle(context, isInFront);
  // A terminal takes its input wherever it is clicked, so it need not be clicked at all. Nor what
  // still has the focus: the pointer may rest on anything, a button that sends among it.
  if (hindrance.empty() && context.isLikelyWebEditor() && !context.isTerminal() &&
      !context.hasFocus()) {
    logger_.log(logSource, LogLevel::debug, "Clicking to focus web input");
    context.clickAtCapturedCaretPoint();
    pause(50, "the web input");
  }

  const auto lengthBefore = context.focusedElement()
                                ? ports_.accessibility.textLength(*context.focusedElement())
                                : Result<int>(fail("DeferredPaste", 1, "No element was captured"));
  const bool verified = putOnClipboard(text);
  if (!hindrance.empty()) return {PasteResult::Outcome::failed, hindrance};
  if (!verified && !ports_.pasteboard.isOwner()) {
    // Whatever is on the clipboard now, it is not this text.
    return {PasteResult::Outcome::failed, "the clipboard did not take the text"};
  }
  const int fetchesBefore = ports_.pasteboard.fetches();
  if (!sendPasteViaHIDWithVerification(context)) {
    return {PasteResult::Outcome::failed, "the paste key could not be sent"};
  }
  const size_t count = text::characterCount(text);
  const auto waitMicroseconds = std::min<size_t>(count * 200, 200'000) + 100'000;
  ports_.dispatch.clock().sleep(std::chrono::microseconds(waitMicroseconds),
                                "the target to read the clipboard");
  logger_.log(logSource, LogLevel::debug,
              "Paste wait: " + std::to_string(waitMicroseconds / 1000) + "ms (attempt 1)");
  return verify(text, context, lengthBefore, fetchesBefore);
}

/// Why the paste key must not be pressed now; empty when it may. A target that is gone leaves the
/// paste to whatever has the focus, as long as that is somewhere text may go.
std::string DeferredPaste::obstacle(const CursorContext& context, bool isInFront) {
  const auto front = ports_.workspace.frontmostApplication();
  if (!front) return "no application has the focus";
  if (!isInFront && ports_.workspace.application(context.processId)) {
    return "its window could not be brought to the front";
  }
  if (const auto focused = ports_.accessibility.focusedElement(front->pid)) {
    if (ports_.accessibility.role(*focused).value_or("") == "AXSecureTextField") {
      return "a password field has the focus";
    }
  }
  return {};
}

bool DeferredPaste::putOnClipboard(const std::string& text) {
  for (int attempt = 1; attempt <= clipboardAttempts; ++attempt) {
    ports_.pasteboard.clear();
    pause(10, "the empty clipboard");
    ports_.pasteboard.setString(text);
    pause(20, "the clipboard");
    const std::string which = "(attempt " + std::to_string(attempt) + ")";
    if (ports_.pasteboard.string() == text) {
      logger_.log(logSource, LogLevel::debug,
                  "Clipboard verified " + which + ", " +
                      std::to_string(text::characterCount(text)) + " chars");
      return true;
    }
    logger_.log(logSource, LogLevel::warning, "Clipboard verification failed " + which);
    if (attempt < clipboardAttempts) pause(30, "the clipboard's other users");
  }
  return false;
}

bool DeferredPaste::sendPasteViaHIDWithVerification(const CursorContext& context) {
  const std::vector<std::string> modifiers = context.isTerminal()
                                                 ? std::vector<std::string>{"control", "shift"}
                                                 : std::vector<std::string>{"control"};
  const std::string chord = context.isTerminal() ? "Ctrl+Shift+V" : "Ctrl+V";
  logger_.print("📋 Posting " + chord + " via HID tap...");
  if (const auto sent = ports_.input.chord(modifiers, "v"); !sent) {
    logger_.print("❌ Failed to create " + chord + " for paste! " + sent.error().description);
    return false;
  }
  pause(25, "the key's way to the target");
  logger_.print("📋 ✅ " + chord + " posted via HID");
  return true;
}

PasteResult DeferredPaste::verify(const std::string& text, const CursorContext& context,
                                  const Result<int>& lengthBefore, int fetchesBefore) {
  const int units = static_cast<int>(text::utf16Length(text));
  const auto isThere = [&] {
    if (!context.focusedElement()) return false;
    const AxElement& element = *context.focusedElement();
    const auto length = ports_.accessibility.textLength(element);
    if (lengthBefore && length && *length == *lengthBefore + units) return true;
    const auto caret = ports_.accessibility.selectedRange(element);
    if (!caret || caret->location < units) return false;
    const auto behind =
        ports_.accessibility.textRange(element, caret->location - units, caret->location);
    return behind && *behind == text && length && lengthBefore && *length != *lengthBefore;
  };
  const bool canBeRead = lengthBefore && isPlainTextField(context.elementRole());
  bool fetched = false;
  for (int look = 0; look <= extraLooks; ++look) {
    if (look > 0) pause(extraLookMs, "a slow target");
    if (isThere()) return {PasteResult::Outcome::confirmed, {}};
    fetched = ports_.pasteboard.fetches() > fetchesBefore;
    if (fetched && !canBeRead) return {PasteResult::Outcome::unverified, {}};
  }
  const bool stillReadable =
      canBeRead && ports_.accessibility.textLength(*context.focusedElement());
  if (fetched && !stillReadable) return {PasteResult::Outcome::unverified, {}};
  return {PasteResult::Outcome::failed,
          fetched ? "the text did not appear in it" : "it did not take the text"};
}

}  // namespace kestrin
