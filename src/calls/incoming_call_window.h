#pragma once

#include <functional>
#include <optional>
#include <string>

#include "calls/call_records.h"
#include "diagnostics/logger.h"
#include "platform/lifetime.h"
#include "platform/user_notifications.h"

namespace kestrin {

/// The one banner of an incoming call, at the top centre above everything. This is its state and
/// its rules; a view draws it. Main queue only.
class IncomingCallWindow {
 public:
  static constexpr int bannerWidth = 380;
  static constexpr int bannerHeight = 96;
  static constexpr int slide = 40;  ///< it comes down from so far above
  static constexpr std::chrono::seconds timeout{30};
  static constexpr std::chrono::seconds ringInterval{3};

  IncomingCallWindow(Dispatch& dispatch, Logger& logger) : dispatch_(dispatch), logger_(logger) {}

  std::function<void(const IncomingCall&)> onAnswer, onDecline, onTimeout;
  /// Shows a notification; `onShown` says how that went.
  std::function<void(UserNotification, Json userInfo,
                     std::function<void(const Result<uint32_t>&)> onShown)>
      notify;
  std::function<void()> requestUserAttention;
  /// At once and then with each interval while it is shown.
  std::function<void()> playRingtone;
  /// After each change; a view redraws.
  std::function<void()> onChange;

  void show(const IncomingCall& incoming);
  void dismissBanner();
  // Without effect while no call is on show.
  void answerClicked();
  void declineClicked();
  void handleTimeout();

  const std::optional<IncomingCall>& currentCall() const { return currentCall_; }
  std::string title() const { return currentCall_ ? currentCall_->callerName : ""; }
  static constexpr const char* subtitle = "Incoming call…";

 private:
  void sendSystemNotification(const std::string& callerName);
  void finish(const std::string& line, const std::function<void(const IncomingCall&)>& then);
  void changed() const {
    if (onChange) onChange();
  }

  Dispatch& dispatch_;
  Logger& logger_;
  std::optional<IncomingCall> currentCall_;
  TimerHandle timeoutTimer_, ringtoneTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
