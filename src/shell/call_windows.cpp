#include "shell/call_windows.h"

#include <QGuiApplication>
#include <QMenu>
#include <QPropertyAnimation>
#include <QScreen>

#include "liveassist/context_panel.h"
#include "shell/pages/mood_rings.h"

namespace kestrin {
namespace {

constexpr int slideMs = 250, panelWidth = 340, restFromTop = 24;
constexpr size_t shownLines = 6;

}  // namespace

CallBanner::CallBanner(IncomingCallWindow& banner)
    : FloatingWindow("Incoming call"),
      banner_(banner),
      name_(makeLabel("", "heading")),
      subtitle_(makeLabel(IncomingCallWindow::subtitle, "caption")) {
  setFixedSize(IncomingCallWindow::bannerWidth, IncomingCallWindow::bannerHeight);
  auto* row = new QHBoxLayout;
  column()->addLayout(row);
  auto* texts = new QVBoxLayout;
  texts->addWidget(name_);
  texts->addWidget(subtitle_);
  row->addLayout(texts, 1);
  row->addWidget(makeButton(
      "Answer", [this] { banner_.answerClicked(); }, "primary"));
  row->addWidget(makeButton("Decline", [this] { banner_.declineClicked(); }));
  banner_.onChange = [this] { refresh(); };
}

CallBanner::~CallBanner() { banner_.onChange = nullptr; }

void CallBanner::refresh() {
  if (!banner_.currentCall()) return hide();
  name_->setText(qt(banner_.title()));
  const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
  const QPoint rest(area.center().x() - width() / 2, area.top() + restFromTop);
  move(rest - QPoint(0, IncomingCallWindow::slide));
  setWindowOpacity(0);
  show();
  for (const auto& [property, to] : {std::pair<const char*, QVariant>{"pos", rest},
                                     std::pair<const char*, QVariant>{"windowOpacity", 1.0}}) {
    auto* motion = new QPropertyAnimation(this, property, this);
    motion->setDuration(slideMs);
    motion->setEndValue(to);
    motion->start(QAbstractAnimation::DeleteWhenStopped);
  }
}

InCallPanel::InCallPanel(Calls& calls, BehavioralProfileManager& profiles)
    : FloatingWindow("Call assistant"),
      calls_(calls),
      panel_(calls.panel()),
      title_(makeLabel("", "heading")),
      lines_(makeParagraph("")),
      summary_(makeParagraph("", "section")),
      suggestions_(makeParagraph("")),
      age_(makeLabel("", "caption")) {
  setFixedWidth(panelWidth);
  auto* head = new QHBoxLayout;
  head->addWidget(title_, 1);
  head->addWidget(age_);
  column()->addLayout(head);
  column()->addWidget(new MoodRings(profiles));
  for (QLabel* each : {lines_, summary_, suggestions_}) column()->addWidget(each);
  auto* row = new QHBoxLayout;
  row->addWidget(makeButton(
      "Sources", [this] { showSources(); }, "quiet"));
  row->addStretch(1);
  row->addWidget(makeButton(
      "Hide", [this] { panel_.dismissPanel(); }, "quiet"));
  row->addWidget(makeButton(
      "End call", [this] { calls_.hangUp(); }, "primary"));
  column()->addLayout(row);
  panel_.onChange = [this] { refresh(); };
}

InCallPanel::~InCallPanel() { panel_.onChange = nullptr; }

void InCallPanel::showSources() {
  auto* menu = new QMenu(this);
  menu->setAttribute(Qt::WA_DeleteOnClose);
  for (const auto& source : LiveAssistContextPanel::sources()) {
    auto* action = menu->addAction(source.title);
    action->setCheckable(true);
    action->setChecked(panel_.isSourceOn(source.name));
    connect(action, &QAction::triggered, this,
            [this, name = std::string(source.name)] { panel_.toggleContextSource(name); });
  }
  menu->popup(QCursor::pos());
}

void InCallPanel::refresh() {
  if (!panel_.isVisible()) return fadeOut();
  title_->setText(qt("Call with " + panel_.callerName()));
  age_->setText(qt(panel_.timestampLabel()));
  std::string lines;
  const size_t first = panel_.lines().size() - std::min(panel_.lines().size(), shownLines);
  for (size_t i = first; i < panel_.lines().size(); ++i)
    lines += (lines.empty() ? "" : "\n") + panel_.lines()[i].label + ": " + panel_.lines()[i].text;
  lines_->setText(qt(lines.empty() ? "What is said appears here." : lines));
  summary_->setText(qt(panel_.problem().empty() ? panel_.summary() : panel_.problem()));
  std::string suggestions;
  for (const std::string& each : panel_.suggestions())
    suggestions += (suggestions.empty() ? "• " : "\n• ") + each;
  suggestions_->setText(qt(suggestions));
  summary_->setVisible(!summary_->text().isEmpty());
  suggestions_->setVisible(!suggestions.empty());
  placeTopRight(InCallAssistPanel::screenMargin);
  appear();
}

}  // namespace kestrin
