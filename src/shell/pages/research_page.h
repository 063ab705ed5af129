#pragma once

#include <QLineEdit>
#include <QListWidget>
#include <map>
#include <string>

#include "research/research_view.h"
#include "shell/design/controls.h"
#include "shell/pages/page.h"

namespace kestrin {

/// Deep Research: past sessions at the side, the conversation in the middle, the question below.
class ResearchPage final : public Page {
 public:
  explicit ResearchPage(ResearchView& view);
  void refresh() override;
  void reload() override { view_.loadResearchHistory(); }

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  struct Drawn {
    QWidget* widget = nullptr;
    std::string of;  ///< what it was drawn from
  };

  QWidget* makeSide();
  void showSessions();
  void showConversation();
  QWidget* makeWelcome();
  QWidget* makeMessage(const ConversationMessage& message);
  void addProgress(QVBoxLayout* column, const std::vector<ProgressStep>& steps);
  void addSources(QVBoxLayout* column, const std::vector<ResearchSource>& sources);

  ResearchView& view_;
  QWidget* side_;
  QListWidget* sessions_;
  Column* conversation_;
  QWidget* welcome_;
  QLineEdit* input_;
  QPushButton* send_;
  QPushButton* stop_;
  QPushButton* regenerate_;
  std::vector<std::string> shownSessions_;
  std::vector<std::pair<std::string, Drawn>> drawn_;  ///< by message id, in order
  int focusRequests_ = 0;
};

}  // namespace kestrin
