#include "app/result_handler.h"

#include <chrono>

namespace kestrin {
namespace {

using namespace std::chrono_literals;

constexpr auto failureShown = 3s;
constexpr auto resultShown = 2s;
constexpr auto modeShown = 3s;
constexpr auto navigationDelay = 500ms;
/// A text that did not arrive must be noticed.
constexpr auto deliveryMessageShown = 6s;

}  // namespace

void ResultHandler::handle(const Finished& finished) {
  if (wasCancelled(finished)) return showReadyOrActive();
  if (!finished.result) return handleFailure(finished.result.error());

  const auto& result = *finished.result;
  const auto request = services_.manager->getRequest(finished.requestId);
  const bool nothingStreamed = !request || request->accumulatedText().empty();
  services_.mainWindow.updateDetectedMode(result.mode);
  if (result.isVoiceResponse) {
    handleVoiceResponse(finished, result);
  } else if (result.isCommand || result.mode == "command") {
    handleCommand(result);
  } else {
    handlePlainText(finished, result, nothingStreamed);
  }

  if (services_.countRequest) services_.countRequest(result.mode);
  if (services_.forgetVoiceProfile) services_.forgetVoiceProfile();
  const bool hasMessage = finished.delivery && !finished.delivery->message.empty();
  showReadyAfter(hasMessage ? Duration(deliveryMessageShown) : Duration(resultShown));
  services_.dispatch.mainQueue()->postAfter(
      modeShown, lifetime_.guard([this] { services_.mainWindow.resetDetectedMode(); }));
}

bool ResultHandler::wasCancelled(const Finished& finished) const {
  if (finished.delivery && finished.delivery->outcome == DeliveryOutcome::cancelled) return true;
  const auto request = services_.manager->getRequest(finished.requestId);
  return request && request->isCancelled();
}

void ResultHandler::handleFailure(const Error& error) {
  services_.mainWindow.updateStatus("❌ " + error.description, StatusColor::red);
  services_.dispatch.mainQueue()->postAfter(failureShown, lifetime_.guard([this] {
    services_.mainWindow.updateStatus(services_.readyText(), StatusColor::primary);
  }));
}

void ResultHandler::handleVoiceResponse(const Finished& finished,
                                        const TranscriptionResult& result) {
  if (result.audioResponse) {
    services_.player.play(*result.audioResponse, [&logger = services_.logger] {
      logger.print("🔊 Voice response playback complete");
    });
  }
  services_.mainWindow.addHistoryEntry("Voice Assistant", result.transcript, result.text,
                                       finished.appName);
  services_.mainWindow.updateStatus("🔊 Speaking response...", StatusColor::primary);
  if (result.shouldNavigate) {
    services_.dispatch.mainQueue()->postAfter(navigationDelay,
                                              lifetime_.guard([this, tab = *result.shouldNavigate] {
                                                services_.mainWindow.navigateToTab(tab);
                                              }));
  }
}

void ResultHandler::handleCommand(const TranscriptionResult& result) {
  auto& window = services_.mainWindow;
  const auto actions = parseActionMarkers(result.text);
  for (const auto& action : actions) services_.actions.execute(action);
  if (!actions.empty()) {
    const auto counted =
        std::to_string(actions.size()) + " action" + (actions.size() == 1 ? "" : "s") + " executed";
    window.addHistoryEntry("command", result.transcript, counted, "System");
    return window.updateStatus("✅ " + counted + "!", StatusColor::primary);
  }
  if (services_.commands.execute(result.text, result.commandType)) {
    window.addHistoryEntry("command", result.transcript, "✅ " + result.text, "System");
    return window.updateStatus("✅ Command executed!", StatusColor::primary);
  }
  window.addHistoryEntry("command", result.transcript, "❌ Failed: " + result.text, "System");
  window.updateStatus("❌ Command failed", StatusColor::red);
}

void ResultHandler::handlePlainText(const Finished& finished, const TranscriptionResult& result,
                                    bool nothingStreamed) {
  services_.mainWindow.addHistoryEntry(result.mode, result.transcript, result.text,
                                       finished.appName);
  const int active = services_.manager->activeRequestCount();
  if (finished.delivery && !finished.delivery->message.empty()) {
    // Never called done: some of the text is not where it belongs.
    services_.mainWindow.updateStatus(finished.delivery->message, StatusColor::orange);
  } else if (active >= 1) {
    services_.mainWindow.updateStatus("Ready - " + countedStreams(active) + " active",
                                      StatusColor::primary);
  } else {
    services_.mainWindow.updateStatus("✅ Done! Ready for next", StatusColor::primary);
  }
  if (nothingStreamed) pasteText(result.text);
}

void ResultHandler::pasteText(const std::string& text) {
  services_.paste.pasteText(
      text, lifetime_.guard([this](const DeliveryReport& report) { reportDelivery(report); }));
}

void ResultHandler::reportDelivery(const DeliveryReport& report) {
  if (report.message.empty()) return;
  services_.mainWindow.updateStatus(report.message, StatusColor::orange);
  const bool canSendAgain =
      report.outcome == DeliveryOutcome::clipboard || report.outcome == DeliveryOutcome::kept;
  if (canSendAgain) services_.overlay.offerSendAgain();
  showReadyAfter(deliveryMessageShown);
}

void ResultHandler::showReadyAfter(Duration delay) {
  services_.dispatch.mainQueue()->postAfter(delay,
                                            lifetime_.guard([this] { showReadyOrActive(); }));
}

void ResultHandler::showReadyOrActive() {
  const int active = services_.manager->activeRequestCount();
  services_.mainWindow.updateStatus(
      active < 1 ? services_.readyText() : "Ready - " + countedStreams(active) + " active",
      StatusColor::primary);
}

}  // namespace kestrin
