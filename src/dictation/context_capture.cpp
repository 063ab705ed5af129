#include "dictation/context_capture.h"

#include <algorithm>
#include <array>

#include "dictation/editor_title.h"
#include "dictation/languages.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t maxSelection = 500;
constexpr int maxBesideCaret = 500;
constexpr size_t maxTail = 1000;
constexpr size_t maxDocument = 2000;
constexpr size_t maxPage = 1500;

constexpr std::array<std::string_view, 4> textInputRoles{"AXTextField", "AXTextArea", "AXComboBox",
                                                         "AXSearchField"};

bool isTextInput(std::string_view role) {
  return std::find(textInputRoles.begin(), textInputRoles.end(), role) != textInputRoles.end();
}

}  // namespace

struct ContextCapture::Front {
  int pid = 0;
  ApplicationName lowerName;
  std::optional<AxElement> focused;
  std::string role;

  /// Passwords are nobody's context.
  bool hasReadableText() const { return focused && role != "AXSecureTextField"; }
};

CapturedContext ContextCapture::captureCurrentContext() {
  CapturedContext context;
  const auto application = workspace_.frontmostApplication();
  if (!application) return context;
  context.appName = application->name;

  Front front;
  front.pid = application->pid;
  front.lowerName = {text::lower(application->name), text::lower(application->desktopId)};
  if (const auto window = workspace_.activeWindow(); window && window->pid == front.pid) {
    context.windowTitle = window->title;
  }
  if (const auto focused = accessibility_.focusedElement(front.pid)) {
    // A program that does not even tell a role hangs: asking on would cost seconds a question.
    if (const auto role = accessibility_.role(*focused)) {
      front.focused = *focused;
      front.role = *role;
    }
  }

  context.hasActiveTextInput = isTextInput(front.role);
  if (isFileManager(front.lowerName)) {
    context.hasActiveTextInput = false;
  } else if (hidesItsTextInput(front.lowerName)) {
    context.hasActiveTextInput = true;
  }

  if (isBrowser(front.lowerName)) {
    if (const auto tab = browser_.activeTab(front.pid)) {
      context.browserURL = tab->url;
      context.browserTabTitle = tab->title;
    }
  }
  enrichWithAccessibilityText(front, context);
  enrichWithAppSpecificContext(front, context);
  return context;
}

void ContextCapture::enrichWithAccessibilityText(const Front& front, CapturedContext& context) {
  if (!front.hasReadableText()) return;
  const auto& element = *front.focused;
  if (const auto selected = accessibility_.selectedText(element)) {
    context.selectedText = text::prefix(*selected, maxSelection);
  }
  const auto length = accessibility_.textLength(element);
  if (!length) return;
  if (const auto range = accessibility_.selectedRange(element)) {
    const int caret = range->location;
    context.cursorPosition = caret;
    context.surroundingText = accessibility_
                                  .textRange(element, std::max(0, caret - maxBesideCaret),
                                             std::min(*length, caret + maxBesideCaret))
                                  .value_or("");
  } else if (const auto value = accessibility_.value(element)) {
    context.surroundingText = text::suffix(*value, maxTail);
  }
}

void ContextCapture::enrichWithAppSpecificContext(const Front& front, CapturedContext& context) {
  const auto& application = front.lowerName;
  if (isCodeEditor(application)) {
    enrichIDEContext(front, context);
  } else if (isNotesApplication(application)) {
    enrichNotesContext(front, context);
  } else if (isMailApplication(application)) {
    enrichMailContext(front, context);
  } else if (isDocumentEditor(application)) {
    context.activeFileName = documentName(context.windowTitle);
  } else if (isBrowser(application)) {
    if (const auto page = browser_.pageText(front.pid, maxDocument)) {
      context.browserPageContent = text::prefix(*page, maxPage);
    }
  } else if (isMessenger(application)) {
    enrichMessagingContext(front, context);
  }
}

void ContextCapture::enrichIDEContext(const Front& front, CapturedContext& context) {
  context.activeFileName = parseEditorTitle(context.windowTitle, front.lowerName.name).fileName;
  context.fileLanguage = languageFromExtension(pathExtension(context.activeFileName));
}

void ContextCapture::enrichNotesContext(const Front& front, CapturedContext& context) {
  context.activeFileName = documentName(context.windowTitle);
  context.documentContent = documentText(front);
}

void ContextCapture::enrichMailContext(const Front& front, CapturedContext& context) {
  const auto content = documentText(front);
  if (content.empty()) return;
  // The window's title is the subject; the sender stands nowhere that all mail programs share.
  context.documentContent =
      "Subject: " + documentName(context.windowTitle) + "\nFrom: \n\n" + content;
}

void ContextCapture::enrichMessagingContext(const Front& front, CapturedContext& context) {
  const auto& name = front.lowerName.name;
  if (text::contains(name, "messages")) {
    const auto content = documentText(front);
    if (!content.empty()) context.documentContent = "Recent messages:\n" + content;
  } else if (text::containsAny(name, {"whatsapp", "telegram", "signal"}) &&
             !context.windowTitle.empty()) {
    context.documentContent = "Chat with: " + context.windowTitle;
  }
}

/// The text that the program shows: its document where it draws one as a web page, else what has
/// the focus.
std::string ContextCapture::documentText(const Front& front) {
  if (const auto page = browser_.pageText(front.pid, maxDocument); page && !page->empty()) {
    return text::prefix(*page, maxDocument);
  }
  if (!front.hasReadableText()) return {};
  return text::prefix(accessibility_.value(*front.focused).value_or(""), maxDocument);
}

}  // namespace kestrin
