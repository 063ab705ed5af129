#include "shell/call_windows.h"

#include <QGuiApplication>
#include <QMenu>
#include <QPropertyAnimation>
#include <QScreen>

#include "liveassist/context_panel.h"

namespace kestrin {
namespace {

constexpr int slideMs = 250, panelWidth = 340, restFromTop = 24;
constexpr size_t shownLines = 6;

void makeFloating(QWidget* window, const char* title) {
  window->setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                         Qt::WindowDoesNotAcceptFocus);
  window->setAttribute(Qt::WA_ShowWithoutActivating);
  window->setWindowTitle(title);
}

QVBoxLayout* cardIn(QWidget* window) {
  auto* outer = new QVBoxLayout(window);
  outer->setContentsMargins(0, 0, 0, 0);
  auto* card = new Card;
  outer->addWidget(card);
  return card->column();
}

}  // namespace

CallBanner::CallBanner(IncomingCallWindow& banner)
    : banner_(banner),
      name_(makeLabel("", "heading")),
      subtitle_(makeLabel(IncomingCallWindow::subtitle, "caption")) {
  makeFloating(this, "Incoming call");
  setFixedSize(IncomingCallWindow::bannerWidth, IncomingCallWindow::bannerHeight);
  auto* row = new QHBoxLayout;
  cardIn(this)->addLayout(row);
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

InCallPanel::InCallPanel(Calls& calls)
    : calls_(calls),
      panel_(calls.panel()),
      title_(makeLabel("", "heading")),
      moods_(makeLabel("", "caption")),
      lines_(makeParagraph("")),
      summary_(makeParagraph("", "section")),
      suggestions_(makeParagraph("")),
      age_(makeLabel("", "caption")) {
  makeFloating(this, "Call assistant");
  setFixedWidth(panelWidth);
  auto* column = cardIn(this);
  auto* head = new QHBoxLayout;
  head->addWidget(title_, 1);
  head->addWidget(age_);
  column->addLayout(head);
  for (QLabel* each : {moods_, lines_, summary_, suggestions_}) column->addWidget(each);
  auto* row = new QHBoxLayout;
  row->addWidget(makeButton(
      "Sources", [this] { showSources(); }, "quiet"));
  row->addStretch(1);
  row->addWidget(makeButton(
      "Hide", [this] { panel_.dismissPanel(); }, "quiet"));
  row->addWidget(makeButton(
      "End call", [this] { calls_.hangUp(); }, "primary"));
  column->addLayout(row);
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
  if (!panel_.isVisible()) return hide();
  title_->setText(qt("Call with " + panel_.callerName()));
  moods_->setText(qt(panel_.moods()));
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
  adjustSize();
  const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
  move(area.right() - width() - InCallAssistPanel::screenMargin,
       area.top() + InCallAssistPanel::screenMargin);
  if (!isVisible()) show();
}

}  // namespace kestrin
