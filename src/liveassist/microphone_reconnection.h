#pragma once

#include <functional>
#include <optional>

#include "diagnostics/logger.h"
#include "platform/lifetime.h"
#include "platform/result.h"

namespace kestrin {

/// Brings a lost microphone back. One attempt runs at a time, and at most one waits; a success does
/// not give attempts back. Main queue only.
class MicrophoneReconnection {
 public:
  static constexpr std::chrono::milliseconds settleTime{500};
  static constexpr std::chrono::seconds retryAfter{2};
  static constexpr std::chrono::seconds healthInterval{3};
  static constexpr double longestSilence = 5.0;  ///< seconds without a buffer
  static constexpr int mostAttempts = 19;

  struct Hooks {
    std::function<bool()> isCapturing;
    /// Opens the microphone anew. The answer never comes after `stop`.
    std::function<void(std::function<void(const Status&)>)> startMicrophone;
    std::function<std::optional<SteadyTime>()> lastMicBufferTime;
    /// At each check while capturing, after the microphone's own.
    std::function<void()> onCheck;
  };

  MicrophoneReconnection(Dispatch& dispatch, Logger& logger, Hooks hooks);

  /// The microphone runs: look after it every 3 s from now on.
  void watch();
  /// The device or the server is gone, or another device is meant.
  void configurationChanged();
  void stop();
  void resetCount() { micReconnectCount_ = 0; }

 private:
  void checkHealth();
  void reconnectMicrophone();
  void attempted(const Status& outcome);
  void reconnectAfter(Duration delay);

  Dispatch& dispatch_;
  Logger& logger_;
  const Hooks hooks_;
  TimerHandle micHealthTimer_;
  TimerHandle nextAttempt_;
  bool isAttempting_ = false;
  int micReconnectCount_ = 0;
  Lifetime lifetime_;
};

}  // namespace kestrin
