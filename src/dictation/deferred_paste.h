#pragma once

#include <string>

#include "diagnostics/logger.h"
#include "dictation/cursor_context.h"

namespace kestrin {

struct PasteResult {
  enum class Outcome {
    confirmed,   ///< read back in the target
    unverified,  ///< a program fetched the text; nothing could be read back
    failed,      ///< it is not in the target
  };
  Outcome outcome = Outcome::failed;
  std::string reason;  ///< of a failure, for people
};

/// Brings a captured target to the front and pastes a text there in one piece, through the
/// clipboard, which keeps the text. Takes most of a second and waits on other programs: on a worker
/// queue only. Never pastes anything but the given text.
class DeferredPaste {
 public:
  DeferredPaste(InsertionPorts ports, Logger& logger) : ports_(ports), logger_(logger) {}

  PasteResult performDeferredPaste(const std::string& text, CursorContext& context);

 private:
  std::string obstacle(const CursorContext& context, bool isInFront);
  bool putOnClipboard(const std::string& text);
  bool sendPasteViaHIDWithVerification(const CursorContext& context);
  PasteResult verify(const std::string& text, const CursorContext& context,
                     const Result<int>& lengthBefore, int fetchesBefore);
  void pause(int milliseconds, const char* why);

  InsertionPorts ports_;
  Logger& logger_;
};

}  // namespace kestrin
