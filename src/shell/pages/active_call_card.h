#pragma once

#include <QTimer>

#include "calls/calls.h"
#include "shell/design/controls.h"

namespace kestrin {

/// The panel "Active Call" of the home page: the call that was answered outside the page of calls,
/// and what becomes of it. Hidden without one.
class ActiveCallCard final : public Card {
 public:
  explicit ActiveCallCard(Calls& calls);
  ~ActiveCallCard() override;

 private:
  void refresh();

  Calls& calls_;
  QLabel *timer_, *status_;
  QVBoxLayout* lines_;
  QPushButton *mute_, *camera_;
  std::vector<std::string> shown_;
  QTimer tick_;
};

}  // namespace kestrin
