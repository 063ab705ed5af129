#pragma once

#include <QLabel>
#include <QWidget>

#include "calls/calls.h"
#include "shell/design/controls.h"

namespace kestrin {

/// What a call shows wherever the user is, above all windows and without taking the focus: the
/// banner of an incoming one, and the panel of the one that goes on.
class CallBanner final : public QWidget {
 public:
  explicit CallBanner(IncomingCallWindow& banner);
  ~CallBanner() override;

 private:
  void refresh();

  IncomingCallWindow& banner_;
  QLabel *name_, *subtitle_;
};

class InCallPanel final : public QWidget {
 public:
  explicit InCallPanel(Calls& calls);
  ~InCallPanel() override;

 private:
  void refresh();
  void showSources();

  Calls& calls_;
  InCallAssistPanel& panel_;
  QLabel *title_, *moods_, *lines_, *summary_, *suggestions_, *age_;
};

}  // namespace kestrin
