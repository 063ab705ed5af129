#pragma once

#include <QLabel>

#include "calls/calls.h"
#include "shell/design/controls.h"
#include "shell/design/floating_window.h"

namespace kestrin {

/// What a call shows wherever the user is, above all windows and without taking the focus: the
/// banner of an incoming one, and the panel of the one that goes on.
class CallBanner final : public FloatingWindow {
 public:
  explicit CallBanner(IncomingCallWindow& banner);
  ~CallBanner() override;

 private:
  void refresh();

  IncomingCallWindow& banner_;
  QLabel *name_, *subtitle_;
};

class InCallPanel final : public FloatingWindow {
 public:
  InCallPanel(Calls& calls, BehavioralProfileManager& profiles);
  ~InCallPanel() override;

 private:
  void refresh();
  void showSources();

  Calls& calls_;
  InCallAssistPanel& panel_;
  QLabel *title_, *lines_, *summary_, *suggestions_, *age_;
};

}  // namespace kestrin
