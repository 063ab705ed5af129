#pragma once

#include <optional>
#include <string>

#include "app/app_services.h"
#include "platform/lifetime.h"

namespace kestrin {

/// Decides what a finished dictation does next: history, status line, actions, commands, a spoken
/// reply, navigation, and a paste where no text went through the stream. Main queue only.
class ResultHandler {
 public:
  struct Finished {
    std::string requestId;
    std::string appName;
    Result<TranscriptionResult> result;
    std::optional<DeliveryReport> delivery;
  };

  explicit ResultHandler(DictationServices& services) : services_(services) {}

  void handle(const Finished& finished);
  /// Pastes at the user's caret of this moment; says so when it does not arrive.
  void pasteText(const std::string& text);
  /// Shows what became of a text that did not arrive, and offers to send it again.
  void reportDelivery(const DeliveryReport& report);

 private:
  void handleFailure(const Error& error);
  void handleVoiceResponse(const Finished& finished, const TranscriptionResult& result);
  void handleCommand(const TranscriptionResult& result);
  void handlePlainText(const Finished& finished, const TranscriptionResult& result,
                       bool nothingStreamed);
  void showReadyAfter(Duration delay);
  void showReadyOrActive();
  bool wasCancelled(const Finished& finished) const;

  DictationServices& services_;
  Lifetime lifetime_;
};

}  // namespace kestrin
