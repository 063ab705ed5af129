#pragma once

#include <QAbstractButton>
#include <array>

#include "liveassist/behavioral_profile_detail_window.h"
#include "liveassist/behavioral_profile_manager.h"

namespace kestrin {

/// The colour of an emotion in every look, by its shown name ("Happy").
QColor emotionColor(const std::string& name);

/// How one side sounds, small: a ring of its emotions, its mood and its first intent.
class MoodRing final : public QAbstractButton {
 public:
  explicit MoodRing(const QString& side);
  void show(MiniMoodRingView view);
  QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const QString side_;
  MiniMoodRingView view_;
};

/// Both sides, each opening all that is known of it beside the other.
class MoodRings final : public QWidget {
 public:
  explicit MoodRings(BehavioralProfileManager& profiles);

 private:
  void refresh();

  BehavioralProfileManager& profiles_;
  std::array<MoodRing*, 2> rings_;
  SubscriptionHandle updates_;
};

}  // namespace kestrin
