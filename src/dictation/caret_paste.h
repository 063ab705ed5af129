#pragma once

#include <functional>
#include <string>

#include "diagnostics/logger.h"
#include "dictation/streaming_request_manager.h"
#include "dictation/undelivered.h"
#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"

namespace kestrin {

/// Pastes a text where the user's caret is now, and gives the clipboard back. Used for results that
/// did not pass through the stream, for typed text of actions and for sending text again.
///
/// The work runs on a queue of its own, one paste at a time; call it from the main queue.
class CaretPaste {
 public:
  /// From the chord to the return of the old clipboard.
  static constexpr std::chrono::milliseconds restoreDelay{500};
  /// How long a program may take to fetch what it was told to paste.
  static constexpr std::chrono::milliseconds fetchTimeout{1000};

  CaretPaste(InsertionPorts ports, Logger& logger, UndeliveredStore& undelivered);

  /// `done` runs on the main queue with what became of the text. A text that did not arrive stays
  /// on the clipboard and is kept as undelivered.
  void pasteText(std::string text, std::function<void(const DeliveryReport&)> done);

 private:
  struct Worker;
  Dispatch& dispatch_;
  QueueRef queue_;
  std::shared_ptr<Worker> worker_;
  Lifetime lifetime_;
};

}  // namespace kestrin
