#include "shell/loop_watch.h"

#include <QAbstractEventDispatcher>
#include <QEvent>

namespace kestrin {

LoopWatch::LoopWatch(QApplication& toolkit, Clock& clock, Logger& logger, SteadyTime started)
    : clock_(clock), logger_(logger), started_(started) {
  toolkit.installEventFilter(this);
  connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this,
          [this] { roundEnds(); });
}

void LoopWatch::expectPage(const std::string& page) {
  page_ = page;
  pageWanted_ = roundBegan_.value_or(clock_.steadyNow());
}

bool LoopWatch::eventFilter(QObject* watched, QEvent* event) {
  if (!roundBegan_) roundBegan_ = clock_.steadyNow();
  if (event->type() == QEvent::Paint && window_ != nullptr && watched->isWidgetType() &&
      static_cast<QWidget*>(watched)->window() == window_) {
    drawn_ = true;
  }
  return false;
}

void LoopWatch::roundEnds() {
  if (!roundBegan_) return;
  const SteadyTime now = clock_.steadyNow();
  if (drawn_) tellDrawn(now);
  tellHeld(now);
  drawn_ = false;
  roundBegan_.reset();
}

void LoopWatch::tellDrawn(SteadyTime now) {
  if (!firstDrawingTold_) tell("first paint after", started_, now);
  firstDrawingTold_ = true;
  if (page_.empty()) return;
  tell("page " + page_ + " drawn after", pageWanted_, now);
  page_.clear();
}

void LoopWatch::tellHeld(SteadyTime now) {
  const auto held = now - *roundBegan_;
  if (held < toldFrom) return;
  if (now < quietUntil_ && held < lastHold_ * 5 / 4) return;
  quietUntil_ = now + quietFor;
  lastHold_ = held;
  tell("main loop held", *roundBegan_, now);
}

void LoopWatch::tell(const std::string& what, SteadyTime since, SteadyTime now) {
  const auto passed = std::chrono::round<std::chrono::milliseconds>(now - since);
  logger_.print("🔍 [Shell] " + what + " " + std::to_string(passed.count()) + " ms");
}

}  // namespace kestrin
