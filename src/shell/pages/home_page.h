#pragma once

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <functional>
#include <string>

#include "home/home_view.h"
#include "shell/design/controls.h"
#include "shell/design/reading.h"
#include "shell/pages/page.h"

namespace kestrin {

/// Draws HomeView: greeting and weather, the briefing, the chips, today's appointments and the
/// panel.
class HomePage final : public Page {
 public:
  HomePage(HomeView& view, std::function<void(const std::string&)> openURL);
  ~HomePage() override;
  void refresh() override;

 private:
  QWidget* makeBanner();
  QWidget* makeBriefing();
  QLayout* makeChips();
  QWidget* makeSchedule();
  QWidget* makePanel();
  void showSchedule();
  void showPanel();

  HomeView& view_;
  const std::function<void(const std::string&)> openURL_;
  QLabel* greeting_ = nullptr;
  QLabel* date_ = nullptr;
  QLabel* banner_ = nullptr;
  Card* bannerCard_ = nullptr;
  QLabel* weather_ = nullptr;
  QLabel* briefing_ = nullptr;
  QPushButton* play_ = nullptr;
  QProgressBar* preparing_ = nullptr;
  QVBoxLayout* schedule_ = nullptr;
  Card* panel_ = nullptr;
  QLabel* panelTitle_ = nullptr;
  QProgressBar* panelLoading_ = nullptr;
  Reading* panelText_ = nullptr;
  QVBoxLayout* panelItems_ = nullptr;
  std::string shownSchedule_, shownPanel_;
};

}  // namespace kestrin
