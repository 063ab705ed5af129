#pragma once

#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <string>

#include "home/calendar_view.h"
#include "shell/design/controls.h"
#include "shell/pages/page.h"

namespace kestrin {

/// Draws CalendarView: hours down, days across, appointments beside each other where they overlap.
class CalendarPage final : public Page {
 public:
  explicit CalendarPage(CalendarView& view);
  ~CalendarPage() override;
  void refresh() override;
  void reload() override { view_.load(); }

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  class Grid;

  CalendarView& view_;
  QLabel* title_;
  QPushButton *day_ = nullptr, *week_ = nullptr;
  QWidget* heads_;
  QScrollArea* scroll_;
  Grid* grid_;
  std::string shown_;
};

}  // namespace kestrin
