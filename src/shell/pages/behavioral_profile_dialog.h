#pragma once

#include <QDialog>
#include <QLabel>

#include "liveassist/behavioral_profile_detail_window.h"
#include "liveassist/behavioral_profile_manager.h"
#include "shell/design/controls.h"
#include "shell/design/share_bars.h"

namespace kestrin {

/// Draws BehavioralProfileDetailWindow: all that is known of how one side sounds, beside the other.
/// Follows the conversation, and deletes itself when it is closed.
class BehavioralProfileDialog final : public QDialog {
 public:
  BehavioralProfileDialog(BehavioralProfileManager& profiles, LAAudioChannel side,
                          LAAudioChannel other, const std::string& title, QWidget* parent);

 private:
  void build();
  void refresh();
  void showTiles();

  BehavioralProfileManager& profiles_;
  const LAAudioChannel side_, otherSide_;
  BehavioralProfileDetailWindow view_;
  QLabel *dominant_, *note_;
  FlowLayout* tiles_;
  ShareBars *emotions_, *intents_;
  Gauges* gauges_;
  SubscriptionHandle updates_;
};

}  // namespace kestrin
