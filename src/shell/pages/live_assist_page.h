#pragma once

#include <QComboBox>
#include <QLineEdit>
#include <map>
#include <string>

#include "liveassist/live_assist.h"
#include "shell/design/controls.h"
#include "shell/pages/page.h"

namespace kestrin {

/// Live Assist: the two-sided transcript, and beside it the panel with contact, sources, feedback
/// and memories.
class LiveAssistPage final : public Page {
 public:
  LiveAssistPage(LiveAssist& live, BehavioralProfileManager& profiles);
  ~LiveAssistPage() override;
  void refresh() override;
  bool isKept() const override;

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  QWidget* makeControls();
  QWidget* makePanel(BehavioralProfileManager& profiles);
  void showTranscript();
  QWidget* makeLine(const LiveAssistChatView::Line& line);
  void showPanel();
  void addItems(const char* title, const std::vector<LiveAssistContextPanel::Item>& items,
                void (LiveAssistContextPanel::*pin)(size_t));
  void showAlerts();
  void openHistory();
  void openFiles();
  void openPromptEditor();

  LiveAssistView& view_;
  QWidget* panel_;
  QPushButton* start_;
  QPushButton* stop_;
  QComboBox* useCase_;
  Switch* enabled_;
  QLabel* status_;
  Column* transcript_;
  QLineEdit* email_;
  QLineEdit* name_;
  std::map<std::string, QCheckBox*> sources_;
  QLabel* header_;
  QVBoxLayout* feedback_;
  size_t linesShown_ = 0;
  std::string firstShown_;
  std::string panelShown_;
};

}  // namespace kestrin
