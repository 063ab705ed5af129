#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/app_services.h"
#include "app/dictation_sender.h"
#include "app/hold_key.h"
#include "app/press_capture.h"
#include "app/result_handler.h"
#include "platform/key_monitor.h"
#include "platform/lifetime.h"

namespace kestrin {

/// The application's controller: turns the hold key into dictations. It watches the key, starts and
/// stops the microphone, takes what the user is looking at and where the text must go, and sends
/// the recording on its way. Main queue only; the main queue never waits here.
class AppDelegate {
 public:
  /// What the status item in the tray shows.
  enum class StatusIcon { idle, recording };

  AppDelegate(DictationServices services, KeyMonitor& keyMonitor,
              std::shared_ptr<ContextCapture> context,
              std::shared_ptr<WorkspaceFileService> workspace);
  ~AppDelegate();

  /// Starts the key monitor; once, at start-up. The edges of other sources (the session bus) are
  /// taken whether it works or not.
  void setupGlobalEventTap();
  void keyEdge(KeyEdge edge) { holdKey_.edge(edge); }
  /// Press when the key is up, release when it is down.
  void toggle();
  /// Drops the recording; without one, stops every running request.
  void cancel();

  void startRecording();
  void stopRecordingAndTranscribe();
  void pasteText(const std::string& text) { results_.pasteText(text); }
  /// Sends the newest undelivered text or recording again, to where the user is now; false when
  /// there is none.
  bool retryUndelivered();

  bool isRecording() const { return isRecording_; }
  bool isStartingRecording() const { return isStartingRecording_; }
  bool fnKeyDown() const { return holdKey_.isDown(); }
  StatusIcon statusIcon() const { return statusIcon_; }

  /// Presses are refused until this is set.
  bool isAppReady = false;
  /// After a change of the icon or of what runs.
  std::function<void()> onChange;
  /// At each press, whatever comes of it.
  std::function<void()> onPress;

 private:
  static constexpr std::chrono::milliseconds pauseAfterReplyStopped{80};
  static constexpr std::chrono::milliseconds pauseAfterEngineReset{150};

  void pressed();
  void beginStart(bool replyWasStopped);
  void deferredStart(int start, bool replyWasStopped);
  void retryStart(int start);
  void startRecorder(int start, std::function<void(const Status&)> then);
  void recordingStarted();
  void recordingFailed(const Error& error, const std::string& logLabel);
  void pressConfirmed();
  void discardRecording();
  void snapshotsArrived(const PressCapture& capture);
  void sendRecording(const std::shared_ptr<PressCapture>& capture, Bytes pcm, int durationMs);
  void setStatusIcon(StatusIcon icon);
  void sendAgain(UndeliveredRecording recording);

  DictationServices services_;
  KeyMonitor& keyMonitor_;
  PressCapturer capturer_;
  ResultHandler results_;
  DictationSender sender_;
  HoldKey holdKey_;
  std::shared_ptr<PressCapture> capture_;  ///< of the last press
  bool isRecording_ = false;
  bool isStartingRecording_ = false;
  int start_ = 0;  ///< counts accepted presses: a late start of an earlier one does nothing
  StatusIcon statusIcon_ = StatusIcon::idle;
  Lifetime lifetime_;
};

}  // namespace kestrin
