#include "liveassist/microphone_reconnection.h"

#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "Audio";

}  // namespace

MicrophoneReconnection::MicrophoneReconnection(Dispatch& dispatch, Logger& logger, Hooks hooks)
    : dispatch_(dispatch), logger_(logger), hooks_(std::move(hooks)) {}

void MicrophoneReconnection::watch() {
  micHealthTimer_ = dispatch_.every(dispatch_.mainQueue(), healthInterval,
                                    lifetime_.guard([this] { checkHealth(); }));
}

void MicrophoneReconnection::configurationChanged() {
  logger_.log(source, LogLevel::warning,
              "⚠️ Audio config changed (another app may have taken the mic)");
  if (!hooks_.isCapturing()) return;
  logger_.log(source, LogLevel::info, "🔄 Reconnecting microphone after config change...");
  reconnectAfter(settleTime);
}

void MicrophoneReconnection::stop() {
  micHealthTimer_.reset();
  nextAttempt_.reset();
  isAttempting_ = false;
  resetCount();
}

void MicrophoneReconnection::checkHealth() {
  if (!hooks_.isCapturing() || isAttempting_) return;
  const auto last = hooks_.lastMicBufferTime();
  if (last) {
    const double silence =
        std::chrono::duration<double>(dispatch_.clock().steadyNow() - *last).count();
    if (silence > longestSilence) {
      logger_.log(source, LogLevel::warning,
                  "⚠️ No mic buffers for " + text::fixed(silence, 1) + "s — reconnecting");
      reconnectMicrophone();
    }
  }
  hooks_.onCheck();
}

void MicrophoneReconnection::reconnectMicrophone() {
  if (!hooks_.isCapturing() || isAttempting_) return;
  nextAttempt_.reset();
  if (++micReconnectCount_ > mostAttempts) {
    logger_.log(
        source, LogLevel::error,
        "❌ Too many mic reconnections (" + std::to_string(micReconnectCount_) + "). Giving up.");
    return;
  }
  isAttempting_ = true;
  hooks_.startMicrophone(lifetime_.guard([this](const Status& outcome) { attempted(outcome); }));
}

void MicrophoneReconnection::attempted(const Status& outcome) {
  isAttempting_ = false;
  if (outcome) {
    logger_.log(source, LogLevel::info,
                "✅ Microphone reconnected (attempt " + std::to_string(micReconnectCount_) + ")");
    return;
  }
  logger_.log(source, LogLevel::error, "❌ Mic reconnection failed: " + outcome.error().description);
  reconnectAfter(retryAfter);
}

void MicrophoneReconnection::reconnectAfter(Duration delay) {
  nextAttempt_ = dispatch_.after(dispatch_.mainQueue(), delay,
                                 lifetime_.guard([this] { reconnectMicrophone(); }));
}

}  // namespace kestrin
