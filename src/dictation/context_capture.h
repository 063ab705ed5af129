#pragma once

#include <optional>
#include <string>

#include "dictation/application_kinds.h"
#include "dictation/captured_context.h"
#include "platform/accessibility.h"
#include "platform/browser.h"
#include "platform/workspace.h"

namespace kestrin {

/// Collects what the user is looking at: the application in front, its window, the page, the text
/// round the caret. Best effort: what cannot be read stays empty, and nothing stops the capture.
/// Holds no state.
class ContextCapture {
 public:
  ContextCapture(Workspace& workspace, Accessibility& accessibility, Browser& browser)
      : workspace_(workspace), accessibility_(accessibility), browser_(browser) {}

  /// Blocks on other programs: off the main queue.
  CapturedContext captureCurrentContext();

 private:
  struct Front;
  void enrichWithAccessibilityText(const Front& front, CapturedContext& context);
  void enrichWithAppSpecificContext(const Front& front, CapturedContext& context);
  void enrichIDEContext(const Front& front, CapturedContext& context);
  void enrichNotesContext(const Front& front, CapturedContext& context);
  void enrichMailContext(const Front& front, CapturedContext& context);
  void enrichMessagingContext(const Front& front, CapturedContext& context);
  std::string documentText(const Front& front);

  Workspace& workspace_;
  Accessibility& accessibility_;
  Browser& browser_;
};

}  // namespace kestrin
