#include "shell/live_feedback_widget.h"

#include "platform/text/text.h"
#include "shell/design/controls.h"

namespace kestrin {
namespace {

constexpr int screenMargin = 16;

}  // namespace

LiveFeedbackWidget::LiveFeedbackWidget(LiveFeedbackWindow& view)
    : FloatingWindow("Live feedback"),
      view_(view),
      age_(makeLabel("", "caption")),
      summary_(makeParagraph("")),
      thinking_(makeLabel("", "caption")),
      suggestions_(makeParagraph("")) {
  setFixedWidth(LiveFeedbackWindow::widgetWidth);
  auto* head = new QHBoxLayout;
  head->addWidget(makeLabel("Live feedback", "section"), 1);
  head->addWidget(age_);
  auto* hide = makeButton(
      "✕", [this] { view_.dismiss(); }, "quiet");
  hide->setAccessibleName("Hide the feedback");
  head->addWidget(hide);
  column()->addLayout(head);
  for (QLabel* each : {thinking_, summary_, suggestions_}) column()->addWidget(each);
  view_.onChange = [this] { refresh(); };
  refresh();
}

LiveFeedbackWidget::~LiveFeedbackWidget() { view_.onChange = nullptr; }

void LiveFeedbackWidget::refresh() {
  if (!view_.isVisible()) return fadeOut();
  age_->setText(qt(view_.timestampLabel()));
  thinking_->setText(qt(view_.thinkingText()));
  thinking_->setVisible(view_.isListening());
  summary_->setText(qt(view_.summaryLabel()));
  summary_->setVisible(!view_.summaryLabel().empty());
  std::string rows = text::join(view_.suggestionRows(), "\n• ");
  if (!rows.empty()) rows = "• " + rows;
  suggestions_->setText(qt(rows));
  suggestions_->setVisible(!rows.empty());
  placeTopRight(screenMargin);
  appear();
  if (frontRequests_ == view_.frontRequests()) return;
  frontRequests_ = view_.frontRequests();
  raise();
}

}  // namespace kestrin
