#pragma once

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <functional>
#include <string>

#include "calls/calls.h"
#include "home/home_view.h"
#include "shell/design/controls.h"
#include "shell/design/reading.h"
#include "shell/pages/mail_card.h"
#include "shell/pages/page.h"

namespace kestrin {

/// Draws HomeView: greeting and weather, the briefing, the chips, today's appointments and the
/// panel; and the mail.
class HomePage final : public Page {
 public:
  /// `connectAccount`: where mail is linked.
  HomePage(HomeView& view, GmailPanel& gmail, Calls& calls,
           std::function<void(const std::string&)> openURL, std::function<void()> connectAccount);
  ~HomePage() override;
  void refresh() override;
  void reload() override { view_.load(); }

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
