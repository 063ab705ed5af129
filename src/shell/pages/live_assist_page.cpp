#include "shell/pages/live_assist_page.h"

#include <QMenu>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTimer>
#include <algorithm>

#include "shell/pages/live_assist_windows.h"
#include "shell/pages/mood_rings.h"

namespace kestrin {
namespace {

constexpr int panelWidth = 300, narrowPanelWidth = 230;
constexpr size_t linesRemade = 200;
constexpr LALiveAssistUseCase useCases[] = {LALiveAssistUseCase::salesCall,
                                            LALiveAssistUseCase::meeting};

}  // namespace

LiveAssistPage::LiveAssistPage(LiveAssist& live, BehavioralProfileManager& profiles)
    : view_(live.view()), transcript_(new Column) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(0);
  auto* main = new QVBoxLayout;
  main->setSpacing(0);
  main->addWidget(makeControls());
  main->addWidget(transcript_, 1);
  row->addLayout(main, 1);
  panel_ = makePanel(profiles);
  row->addWidget(panel_);
  const auto redraw = [this] { refresh(); };
  view_.onChange = redraw;
  view_.chat().onChange = redraw;
  view_.panel().onChange = redraw;
}

LiveAssistPage::~LiveAssistPage() {
  view_.onChange = nullptr;
  view_.chat().onChange = nullptr;
  view_.panel().onChange = nullptr;
}

QWidget* LiveAssistPage::makeControls() {
  auto* bar = new QWidget;
  auto* column = new QVBoxLayout(bar);
  column->setContentsMargins(28, 20, 28, 4);
  auto* head = new FlowLayout;
  head->addWidget(makeLabel("Live Assist", "title"), 1);
  head->addWidget(makeButton("History", [this] { openHistory(); }));
  head->addWidget(makeButton("Files", [this] { openFiles(); }));
  head->addWidget(makeButton("Prompt", [this] { openPromptEditor(); }));
  head->addWidget(makeButton("New Session", [this] { view_.newSessionClicked(); }));
  column->addLayout(head);
  auto* controls = new FlowLayout;
  start_ = makeButton(
      "Start", [this] { view_.startCapture(); }, "primary");
  stop_ = makeButton("Stop", [this] { view_.stopCapture(); });
  useCase_ = makeChoices("Kind of conversation");
  for (const LALiveAssistUseCase useCase : useCases) useCase_->addItem(qt(displayName(useCase)));
  connect(useCase_, &QComboBox::activated, this,
          [this](int index) { view_.chooseUseCase(useCases[index]); });
  enabled_ = new Switch;
  enabled_->setAccessibleName("Feedback");
  connect(enabled_, &QCheckBox::toggled, this, [this](bool on) { view_.liveAssistToggled(on); });
  status_ = makeLabel("", "caption");
  controls->addWidget(start_);
  controls->addWidget(stop_);
  controls->addWidget(useCase_);
  auto* feedback = new QHBoxLayout;
  feedback->addWidget(enabled_);
  feedback->addWidget(makeLabel("Feedback", "caption"));
  controls->addLayout(feedback);
  controls->addStretch(1);
  controls->addWidget(status_);
  column->addLayout(controls);
  return bar;
}

QWidget* LiveAssistPage::makePanel(BehavioralProfileManager& profiles) {
  auto* panel = new Column(panelWidth);
  header_ = makeLabel("", "heading");
  panel->column()->addWidget(header_);
  name_ = new QLineEdit;
  name_->setPlaceholderText("Contact's name");
  name_->setAccessibleName("Contact's name");
  email_ = new QLineEdit;
  email_->setPlaceholderText("Contact's email");
  email_->setAccessibleName("Contact's email");
  const auto select = [this] {
    view_.panel().selectContact(email_->text().trimmed().toStdString(),
                                name_->text().trimmed().toStdString());
  };
  connect(email_, &QLineEdit::editingFinished, this, select);
  connect(name_, &QLineEdit::editingFinished, this, select);
  panel->column()->addWidget(name_);
  panel->column()->addWidget(email_);
  auto* boxes = new FlowLayout;
  boxes->setSpacing(10);
  for (const auto& source : LiveAssistContextPanel::sources()) {
    auto* box = new QCheckBox(source.title);
    connect(box, &QCheckBox::toggled, this,
            [this, name = source.name](bool on) { view_.panel().setSource(name, on); });
    sources_[source.name] = box;
    boxes->addWidget(box);
  }
  panel->column()->addLayout(boxes);
  panel->column()->addWidget(new MoodRings(profiles));
  feedback_ = new QVBoxLayout;
  panel->column()->addLayout(feedback_);
  return panel;
}

void LiveAssistPage::resizeEvent(QResizeEvent* event) {
  Page::resizeEvent(event);
  panel_->setFixedWidth(std::clamp(width() * 2 / 5, narrowPanelWidth, panelWidth));
}

bool LiveAssistPage::isKept() const { return linesShown_ > linesRemade; }

void LiveAssistPage::refresh() {
  start_->setEnabled(view_.canStart());
  stop_->setEnabled(view_.canStop());
  useCase_->setEnabled(view_.canChooseMode());
  useCase_->setCurrentIndex(view_.liveAssistUseCase() == useCases[0] ? 0 : 1);
  {
    const QSignalBlocker quiet(enabled_);
    enabled_->setChecked(view_.isLiveAssistEnabled());
  }
  setRole(status_, view_.status().kind == LiveAssistView::StatusKind::failed ? "error" : "caption");
  status_->setText(qt(view_.chat().confirmation().value_or(view_.status().text)));
  showTranscript();
  showPanel();
  showAlerts();
}

void LiveAssistPage::showTranscript() {
  const auto& lines = view_.chat().lines();
  const std::string first = lines.empty() ? "" : lines[0].messageId + lines[0].text;
  if (linesShown_ > lines.size() || first != firstShown_ || linesShown_ == 0) {
    clearLayout(transcript_->column());
    linesShown_ = 0;
  }
  firstShown_ = first;
  if (lines.empty()) {
    transcript_->column()->addWidget(
        makeEmptyState({"Nothing said yet",
                        "Start, and what you and the others say is written here, each on its "
                        "side."}));
    return;
  }
  if (linesShown_ == lines.size()) return;
  for (; linesShown_ < lines.size(); ++linesShown_) {
    transcript_->column()->addWidget(makeLine(lines[linesShown_]));
  }
  QScrollBar* bar = transcript_->verticalScrollBar();
  QTimer::singleShot(0, this, [bar] { bar->setValue(bar->maximum()); });
}

QWidget* LiveAssistPage::makeLine(const LiveAssistChatView::Line& line) {
  if (line.messageId.empty()) {
    auto* notice = makeLabel(qt(line.text), "caption");
    notice->setAlignment(Qt::AlignCenter);
    return notice;
  }
  const bool mine = line.channel == LAAudioChannel::microphone;
  auto* whole = new QWidget;
  auto* row = new QHBoxLayout(whole);
  row->setContentsMargins(0, 0, 0, 0);
  auto* card = new Card;
  if (mine) card->setProperty("role", "mine");
  card->column()->setSpacing(2);
  card->column()->addWidget(makeParagraph(qt(line.text)));
  card->column()->addWidget(
      makeLabel(qt(line.time + "  " + (mine ? "You  " : "Other  ") + line.details), "caption"));
  card->setContextMenuPolicy(Qt::CustomContextMenu);
  card->setFocusPolicy(Qt::TabFocus);
  card->setAccessibleName(qt((mine ? "You: " : "Other: ") + line.text));
  connect(card, &QWidget::customContextMenuRequested, this,
          [this, card, id = line.messageId](QPoint at) {
            auto* menu = new QMenu(this);
            menu->setAttribute(Qt::WA_DeleteOnClose);
            menu->addAction(LiveAssistChatView::pinTitle, [this, id] { view_.chat().pin(id); });
            menu->addAction(LiveAssistChatView::copyTitle, [this, id] { view_.chat().copy(id); });
            menu->popup(card->mapToGlobal(at));
          });
  if (mine) row->addStretch(1);
  row->addWidget(card, 4);
  if (!mine) row->addStretch(1);
  return whole;
}

void LiveAssistPage::showPanel() {
  auto& panel = view_.panel();
  header_->setText(qt(panel.header()));
  for (const auto& [name, on] : panel.contextFilters()) {
    const QSignalBlocker quiet(sources_.at(name));
    sources_.at(name)->setChecked(on);
  }
  if (!panel.contact() && !email_->hasFocus() && !name_->hasFocus()) {
    email_->clear();
    name_->clear();
  }
  const auto& mine = panel.tracked(LAAudioChannel::microphone);
  const auto& others = panel.tracked(LAAudioChannel::system);
  std::string wanted = panel.snapshot().toJson().dump() + panel.emptyText() + mine.emotion +
                       mine.intent + others.emotion + others.intent;
  for (const auto& item : panel.memoryItems()) wanted += item.title + item.detail;
  for (const auto& item : panel.docItems()) wanted += item.title + item.detail;
  for (const auto& known : panel.contactLines()) wanted += known;
  if (wanted == panelShown_) return;
  panelShown_ = wanted;
  clearLayout(feedback_);
  if (panel.feedbackSummary().empty() && panel.suggestions().empty()) {
    feedback_->addWidget(makeParagraph(qt(panel.emptyText()), "caption"));
  }
  if (!panel.feedbackSummary().empty()) {
    feedback_->addWidget(makeLabel("FEEDBACK", "section"));
    feedback_->addWidget(makeParagraph(qt(panel.feedbackSummary())));
  }
  if (!panel.suggestions().empty()) feedback_->addWidget(makeLabel("SUGGESTIONS", "section"));
  for (const auto& each : panel.suggestions()) {
    feedback_->addWidget(makeParagraph("• " + qt(each)));
  }
  if (!mine.emotion.empty() || !others.emotion.empty()) {
    feedback_->addWidget(makeLabel("MOOD", "section"));
    feedback_->addWidget(makeParagraph(qt("You: " + mine.emotion + "  " + mine.intent), "caption"));
    feedback_->addWidget(
        makeParagraph(qt("Other: " + others.emotion + "  " + others.intent), "caption"));
  }
  for (const auto& known : panel.contactLines()) {
    feedback_->addWidget(makeParagraph(qt(known), "caption"));
  }
  addItems("MEMORIES", panel.memoryItems(), &LiveAssistContextPanel::pinMemory);
  addItems("DOCUMENTS", panel.docItems(), &LiveAssistContextPanel::pinDocument);
}

void LiveAssistPage::addItems(const char* title,
                              const std::vector<LiveAssistContextPanel::Item>& items,
                              void (LiveAssistContextPanel::*pin)(size_t)) {
  if (items.empty()) return;
  feedback_->addWidget(makeLabel(title, "section"));
  for (size_t i = 0; i < items.size(); ++i) {
    auto* card = new Card;
    card->column()->addWidget(makeParagraph(qt(items[i].title)));
    if (!items[i].detail.empty()) {
      card->column()->addWidget(makeParagraph(qt(items[i].detail), "caption"));
    }
    auto* button = makeButton(
        "Pin", [this, pin, i] { (view_.panel().*pin)(i); }, "quiet");
    button->setAccessibleName(qt("Pin " + items[i].title));
    card->column()->addWidget(button, 0, Qt::AlignLeft);
    feedback_->addWidget(card);
  }
}

void LiveAssistPage::showAlerts() {
  if (!view_.alert()) return;
  const LiveAssistView::Alert alert = *view_.alert();
  view_.dismissAlert();
  showAlert(this, alert.title, alert.text, {"OK"}, [](size_t) {});
}

void LiveAssistPage::openHistory() {
  view_.history().showSessionHistory();
  (new SessionHistoryDialog(view_.history(), this))->open();
}

void LiveAssistPage::openFiles() {
  view_.files().open();
  (new SessionFilesDialog(view_.files(), this))->open();
}

void LiveAssistPage::openPromptEditor() {
  view_.editPromptClicked();
  if (view_.promptEditor().isOpen()) (new PromptEditorDialog(view_.promptEditor(), this))->open();
}

}  // namespace kestrin
