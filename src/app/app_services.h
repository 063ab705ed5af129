#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/main_window_controller.h"
#include "diagnostics/logger.h"
#include "dictation/action_executor.h"
#include "dictation/audio_player_service.h"
#include "dictation/audio_recorder.h"
#include "dictation/caret_paste.h"
#include "dictation/command_executor.h"
#include "dictation/overlay_window.h"
#include "dictation/streaming_request_manager.h"
#include "dictation/transcription_service.h"
#include "dictation/undelivered.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin {

/// What the dictation's classes here share. The composition root owns all of it.
struct DictationServices {
  Dispatch& dispatch;
  Random& random;
  Logger& logger;
  std::shared_ptr<StreamingRequestManager> manager;
  std::shared_ptr<TranscriptionService> transcription;
  AudioRecorder& recorder;
  AudioPlayerService& player;
  OverlayWindow& overlay;
  MainWindowController& mainWindow;
  ActionExecutor& actions;
  CommandExecutor& commands;
  CaretPaste& paste;
  UndeliveredStore& undelivered;
  std::string holdKeyName;
  /// Token of the signed-in user, if any.
  std::function<std::optional<std::string>()> authToken;
  /// Makes the next reader of the voice profile fetch it afresh. May be empty.
  std::function<void()> forgetVoiceProfile;
  /// Gets the mode of each finished request, for the statistics. May be empty.
  std::function<void(const std::string& mode)> countRequest;

  /// "Ready — Hold fn 🌐 to record".
  std::string readyText() const { return nameHoldKey("Ready — Hold fn 🌐 to record", holdKeyName); }
};

}  // namespace kestrin
