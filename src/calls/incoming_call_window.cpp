#include "calls/incoming_call_window.h"

#include <utility>

namespace kestrin {
namespace {

constexpr const char* source = "Calls";

}  // namespace

void IncomingCallWindow::show(const IncomingCall& incoming) {
  if (currentCall_) dismissBanner();
  currentCall_ = incoming;
  changed();
  if (requestUserAttention) requestUserAttention();
  sendSystemNotification(incoming.callerName);
  const auto main = dispatch_.mainQueue();
  timeoutTimer_ = dispatch_.after(main, timeout, [this] { handleTimeout(); });
  const auto ring = [this] {
    if (playRingtone) playRingtone();
  };
  ring();
  ringtoneTimer_ = dispatch_.every(main, ringInterval, ring);
  logger_.log(source, LogLevel::info, "📞 Incoming call banner shown: " + incoming.callerName);
}

void IncomingCallWindow::sendSystemNotification(const std::string& callerName) {
  if (!notify) return;
  notify({.title = "📞 Incoming Call",
          .body = callerName + " is calling you",
          .category = "INCOMING_CALL",
          .sound = true},
         Json::object({{"callerName", callerName}}),
         lifetime_.guard([this](const Result<uint32_t>& shown) {
           if (shown) return;
           logger_.log(source, LogLevel::error,
                       "Incoming call notification error: " + shown.error().description);
         }));
}

void IncomingCallWindow::answerClicked() {
  finish("✅ Call answered from global banner: ", onAnswer);
}
void IncomingCallWindow::declineClicked() {
  finish("❌ Call declined from global banner: ", onDecline);
}
void IncomingCallWindow::handleTimeout() { finish("⏰ Call timed out: ", onTimeout); }

void IncomingCallWindow::finish(const std::string& line,
                                const std::function<void(const IncomingCall&)>& then) {
  if (!currentCall_) return;
  const IncomingCall call = *currentCall_;
  logger_.log(source, LogLevel::info, line + call.callerName);
  dismissBanner();
  if (then) then(call);
}

void IncomingCallWindow::dismissBanner() {
  timeoutTimer_.reset();
  ringtoneTimer_.reset();
  if (!std::exchange(currentCall_, std::nullopt)) return;
  changed();
}

}  // namespace kestrin
