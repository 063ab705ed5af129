#pragma once

#include <QApplication>
#include <QObject>
#include <QWidget>
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin {

/// Tells the log, at debug level, how long the main loop was held and when the window was drawn, so
/// that a slow window can be understood from the day's file. One round of the loop is a hold: from
/// the first event after a pause to the next time that the loop could wait. Main thread only.
class LoopWatch final : public QObject {
 public:
  /// A shorter hold is not told: a frame and a bit, which nobody sees.
  static constexpr std::chrono::milliseconds toldFrom{20};
  /// A hold may come of what the log set off, such as drawing the log itself. After one is told,
  /// only a much longer one is for so long.
  static constexpr std::chrono::seconds quietFor{1};

  /// `started`: when the program began, as near as it knows.
  LoopWatch(QApplication& toolkit, Clock& clock, Logger& logger, SteadyTime started);

  /// Tells of the first drawing of `window` ever, and of each next drawing that was expected.
  void watch(QWidget& window) { window_ = &window; }
  /// `page` is about to be made and drawn in the window.
  void expectPage(const std::string& page);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void roundEnds();
  void tellDrawn(SteadyTime now);
  void tellHeld(SteadyTime now);
  void tell(const std::string& what, SteadyTime since, SteadyTime now);

  Clock& clock_;
  Logger& logger_;
  const SteadyTime started_;
  QWidget* window_ = nullptr;
  std::optional<SteadyTime> roundBegan_;
  bool drawn_ = false;  ///< in this round
  bool firstDrawingTold_ = false;
  std::string page_;  ///< not drawn yet
  SteadyTime pageWanted_;
  SteadyTime quietUntil_{};
  std::chrono::nanoseconds lastHold_{};
};

}  // namespace kestrin
