#pragma once

#include <QLabel>

#include "liveassist/live_feedback_window.h"
#include "shell/design/floating_window.h"

namespace kestrin {

/// Draws LiveFeedbackWindow: the current summary and suggestions, above every application.
class LiveFeedbackWidget final : public FloatingWindow {
 public:
  explicit LiveFeedbackWidget(LiveFeedbackWindow& view);
  ~LiveFeedbackWidget() override;

 private:
  void refresh();

  LiveFeedbackWindow& view_;
  QLabel *age_, *summary_, *thinking_, *suggestions_;
  int frontRequests_ = 0;
};

}  // namespace kestrin
