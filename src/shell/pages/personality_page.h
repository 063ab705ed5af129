#pragma once

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <string>

#include "shell/design/controls.h"
#include "shell/pages/page.h"
#include "usermodel/personality/personality_view.h"

namespace kestrin {

/// Draws PersonalityView: profile with archetype and charts, or the question of the test.
class PersonalityPage final : public Page {
 public:
  explicit PersonalityPage(PersonalityView& view);
  ~PersonalityPage() override;
  void refresh() override;
  void reload() override { view_.load(); }

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  QWidget* makeProfile();
  QWidget* makeTest();
  void showProfile();
  void showTest();

  PersonalityView& view_;
  QWidget* profile_;
  QWidget* test_;
  QLabel *status_ = nullptr, *personality_ = nullptr, *archetype_ = nullptr, *traits_ = nullptr,
         *voice_ = nullptr;
  QPushButton* start_ = nullptr;
  FlowLayout* charts_ = nullptr;
  QLabel *progress_ = nullptr, *question_ = nullptr, *hint_ = nullptr, *timer_ = nullptr,
         *notice_ = nullptr;
  QProgressBar* level_ = nullptr;
  QPushButton *record_ = nullptr, *skip_ = nullptr;
  std::optional<std::vector<RadarChart>> shownCharts_;
};

}  // namespace kestrin
