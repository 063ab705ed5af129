#include "shell/pages/modes_page.h"

#include <QSignalBlocker>
#include <cmath>

namespace kestrin {
namespace {

constexpr int sliderSteps = 20;
constexpr int promptHeight = 110;

}  // namespace

ModesPage::ModesPage(ModesView& view) : view_(view), toast_(makeLabel("", "toast")) {
  auto* whole = new QVBoxLayout(this);
  whole->setContentsMargins(0, 0, 0, 0);
  auto* page = new Column;
  whole->addWidget(page);
  auto* head = new FlowLayout;
  head->addWidget(makeLabel(ModesView::title, "title"), 1);
  head->addWidget(makeButton(ModesView::resetTitle, [this] { view_.resetAllPrompts(); }));
  page->column()->addLayout(head);
  page->column()->addWidget(makeParagraph(ModesView::intro, "caption"));
  addSection(page->column(), ModesView::voiceSection, view_.voiceCards());
  addSection(page->column(), ModesView::liveAssistSection, view_.liveAssistCards());
  toast_->setParent(this);
  toast_->hide();
  view_.onChange = [this] { refresh(); };
}

ModesPage::~ModesPage() { view_.onChange = nullptr; }

void ModesPage::addSection(QVBoxLayout* column, const char* title,
                           const std::vector<ModesView::Card>& cards) {
  column->addWidget(makeLabel(title, "heading"));
  for (const ModesView::Card& card : cards) column->addWidget(makeCard(card));
}

QWidget* ModesPage::makeCard(const ModesView::Card& card) {
  auto* frame = new Card;
  CardWidgets made{};
  auto* head = new FlowLayout;
  head->addWidget(makeLabel(qt(card.name), "heading"));
  made.badge = makeLabel(ModesView::badgeTitle, "badge");
  head->addWidget(made.badge);
  head->addStretch(1);
  frame->column()->addLayout(head);
  frame->column()->addWidget(makeParagraph(qt(card.description), "caption"));
  frame->column()->addWidget(makeLabel(ModesView::promptTitle, "section"));
  made.prompt = new QPlainTextEdit;
  made.prompt->setAccessibleName(qt("Prompt of " + card.name));
  made.prompt->setFixedHeight(promptHeight);
  made.prompt->setTabChangesFocus(true);
  connect(made.prompt, &QPlainTextEdit::textChanged, this,
          [this, id = card.id, prompt = made.prompt] {
            view_.editPrompt(id, prompt->toPlainText().toStdString());
          });
  frame->column()->addWidget(made.prompt);
  auto* foot = new FlowLayout;
  if (card.creativity) {
    frame->column()->addWidget(makeLabel(ModesView::creativityTitle, "section"));
    made.slider = new QSlider(Qt::Horizontal);
    made.slider->setAccessibleName(qt("Creativity of " + card.name));
    made.slider->setRange(0, sliderSteps);
    made.slider->setFixedWidth(180);
    connect(made.slider, &QSlider::valueChanged, this,
            [this, id = card.id](int value) { view_.moveSlider(id, double(value) / sliderSteps); });
    made.number = makeLabel("");
    foot->addWidget(makeLabel(ModesView::preciseLabel, "caption"));
    foot->addWidget(made.slider);
    foot->addWidget(makeLabel(ModesView::creativeLabel, "caption"));
    foot->addWidget(made.number);
  }
  foot->addStretch(1);
  if (card.creativity) {
    made.test = makeButton(qt(card.testTitle),
                           [this, id = "test_" + card.id] { view_.testModePrompt(id); });
    foot->addWidget(made.test);
  }
  auto* save = makeButton(
      ModesView::saveTitle, [this, id = card.id] { view_.saveModePrompt(id); }, "primary");
  save->setAccessibleName(qt(ModesView::saveTitle + (": " + card.name)));
  foot->addWidget(save);
  frame->column()->addLayout(foot);
  widgets_[card.id] = made;
  return frame;
}

void ModesPage::show(const ModesView::Card& card) {
  const auto found = widgets_.find(card.id);
  if (found == widgets_.end()) return;
  const CardWidgets& made = found->second;
  made.badge->setVisible(card.isCustom);
  if (made.prompt->toPlainText().toStdString() != card.prompt) {
    const QSignalBlocker quiet(made.prompt);
    made.prompt->setPlainText(qt(card.prompt));
  }
  if (made.slider == nullptr) return;
  const QSignalBlocker quiet(made.slider);
  made.slider->setValue(int(std::lround(card.creativity.value_or(0) * sliderSteps)));
  made.number->setText(qt(card.creativityLabel));
  setTitle(made.test, qt(card.testTitle));
  made.test->setAccessibleName(qt(card.testTitle + ": " + card.name));
  made.test->setEnabled(card.canTest);
}

void ModesPage::refresh() {
  for (const auto& card : view_.voiceCards()) show(card);
  for (const auto& card : view_.liveAssistCards()) show(card);
  toast_->setVisible(view_.toast().has_value());
  if (view_.toast()) {
    toast_->setText(qt(*view_.toast()));
    toast_->adjustSize();
    toast_->move((width() - toast_->width()) / 2, height() - toast_->height() - 24);
    toast_->raise();
  }
  if (view_.alert() == nullptr || view_.alert() == shownAlert_) {
    if (view_.alert() == nullptr) shownAlert_ = nullptr;
    return;
  }
  shownAlert_ = view_.alert();
  showAlert(this, shownAlert_->title, shownAlert_->text, shownAlert_->buttons,
            [this](size_t button) {
              // The next one may come to stand at the same place.
              shownAlert_ = nullptr;
              view_.answerAlert(button);
            });
}

}  // namespace kestrin
