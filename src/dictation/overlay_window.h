#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "dictation/streaming_request_manager.h"
#include "dictation/undelivered.h"
#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"

namespace kestrin {

struct OverlayColor {
  double red = 0, green = 0, blue = 0, alpha = 1;
  bool operator==(const OverlayColor&) const = default;
};

struct OverlayRect {
  double x = 0, y = 0, width = 0, height = 0;
  bool operator==(const OverlayRect&) const = default;
};

/// One line below the pill: a running request, or what could not be delivered.
struct OverlayRow {
  enum class Button { none, stop, sendAgain };
  std::string id;  ///< of the request; empty for the row of undelivered things
  std::string displayName;
  std::string text;  ///< its tail, on one line
  OverlayColor tint;
  Button button = Button::none;
  bool operator==(const OverlayRow&) const = default;
};

/// The small panel that shows that the microphone is open, how loud the input is and what each
/// running request does. This is its state and its rules; a view draws it. Main queue only.
class OverlayWindow {
 public:
  static constexpr double pillWidth = 240, pillHeight = 44, pillRadius = 22;
  static constexpr double dotSize = 12;
  static constexpr double barWidth = 4, barHeightAtRest = 10;
  static constexpr size_t barCount = 7;
  static constexpr double rowWidth = 280, rowHeight = 48, rowGap = 8;
  static constexpr double screenMargin = 12;
  static constexpr OverlayColor pillColor{0.1, 0.1, 0.1, 0.95};
  static constexpr double pulseFrom = 1.0, pulseTo = 0.3;
  static constexpr std::chrono::milliseconds pulseDuration{800};
  static constexpr size_t tailCharacters = 60;
  /// An offer to send again leaves the screen after this time; the tray's menu keeps it.
  static constexpr std::chrono::seconds offerDuration{30};

  OverlayWindow(Dispatch& dispatch, Logger& logger,
                std::shared_ptr<StreamingRequestManager> manager,
                const UndeliveredStore& undelivered);

  void showRecording();
  void hideOverlay();
  /// From the pill to the rows: the recording has ended, its request goes on.
  void returnToStreamingView();
  void updateAudioLevel(float level);
  void updateStreamingRequestsUI();
  void setupStreamingRequestsObserver();
  /// Something could not be delivered: offers to send it again for a while.
  void offerSendAgain();

  /// The buttons of a row.
  void stopStreamingRequest(const std::string& id);
  void sendAgain();

  bool isVisible() const { return visible_; }
  bool isRecordingActive() const { return isRecordingActive_; }
  bool isPulsing() const { return pulsing_; }
  const std::string& statusLabel() const { return statusLabel_; }
  float currentAudioLevel() const { return currentAudioLevel_; }
  const std::array<double, barCount>& barHeights() const { return barHeights_; }
  static double barX(size_t index) { return 35.0 + 7.0 * static_cast<double>(index); }
  const std::vector<OverlayRow>& rows() const { return rows_; }
  double width() const { return width_; }
  double height() const { return height_; }
  /// At the bottom right of a screen (or of its work area).
  OverlayRect placeOn(const OverlayRect& screen) const;
  /// Inside the window.
  OverlayRect pillRect() const;
  OverlayRect rowRect(size_t index) const;

  static OverlayColor colorForStatus(StreamingStatus status);

  /// After every change that a view must draw.
  std::function<void()> onChange;
  /// The user asks to send what was not delivered again.
  std::function<void()> onSendAgain;

 private:
  void resizeToFitContent(size_t streams);
  void changed();

  Dispatch& dispatch_;
  Logger& logger_;
  std::shared_ptr<StreamingRequestManager> manager_;
  const UndeliveredStore& undelivered_;

  bool visible_ = false;
  bool isRecordingActive_ = false;
  bool pulsing_ = false;
  bool offering_ = false;
  std::string statusLabel_;
  float currentAudioLevel_ = 0;
  std::array<double, barCount> barHeights_{};
  std::vector<OverlayRow> rows_;
  double width_ = pillWidth;
  double height_ = pillHeight;
  TimerHandle offerTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
