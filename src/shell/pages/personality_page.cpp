#include "shell/pages/personality_page.h"

#include "platform/text/text.h"
#include "shell/design/radar_chart.h"

namespace kestrin {

PersonalityPage::PersonalityPage(PersonalityView& view) : view_(view) {
  auto* whole = new QVBoxLayout(this);
  whole->setContentsMargins(0, 0, 0, 0);
  auto* page = new Column;
  whole->addWidget(page);
  page->column()->addWidget(makeLabel("Personality", "title"));
  profile_ = makeProfile();
  test_ = makeTest();
  page->column()->addWidget(profile_);
  page->column()->addWidget(test_);
  view_.onChange = [this] {
    if (isVisible()) refresh();
  };
}

PersonalityPage::~PersonalityPage() { view_.onChange = nullptr; }

void PersonalityPage::showEvent(QShowEvent* event) {
  Page::showEvent(event);
  view_.load();
}

QWidget* PersonalityPage::makeProfile() {
  auto* whole = new QWidget;
  auto* column = new QVBoxLayout(whole);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(12);
  auto* card = new Card;
  auto* row = new FlowLayout;
  status_ = makeLabel("", "heading");
  row->addWidget(status_, 1);
  start_ = makeButton(
      "", [this] { view_.startTest(); }, "primary");
  row->addWidget(start_);
  card->column()->addLayout(row);
  personality_ = makeParagraph("");
  card->column()->addWidget(personality_);
  column->addWidget(card);
  auto* archetype = new Card;
  archetype_ = makeLabel("", "heading");
  archetype->column()->addWidget(archetype_);
  traits_ = makeParagraph("", "caption");
  archetype->column()->addWidget(traits_);
  column->addWidget(archetype);
  auto* voice = new Card;
  voice->column()->addWidget(makeLabel("YOUR VOICE", "section"));
  voice_ = makeLabel("", "caption");
  voice->column()->addWidget(voice_);
  charts_ = new FlowLayout;
  voice->column()->addLayout(charts_);
  column->addWidget(voice);
  return whole;
}

QWidget* PersonalityPage::makeTest() {
  auto* card = new Card;
  progress_ = makeLabel("", "section");
  question_ = makeLabel("", "title");
  hint_ = makeParagraph("", "caption");
  timer_ = makeLabel("", "figure");
  notice_ = makeLabel("");
  for (QWidget* widget : {static_cast<QWidget*>(progress_), static_cast<QWidget*>(question_),
                          static_cast<QWidget*>(hint_), static_cast<QWidget*>(timer_)})
    card->column()->addWidget(widget);
  level_ = new QProgressBar;
  level_->setAccessibleName("Loudness");
  level_->setTextVisible(false);
  card->column()->addWidget(level_);
  card->column()->addWidget(notice_);
  auto* row = new FlowLayout;
  record_ = makeButton(
      "", [this] { view_.toggleRecording(); }, "primary");
  skip_ = makeButton("Skip", [this] { view_.skip(); });
  row->addWidget(record_);
  row->addWidget(skip_);
  row->addStretch(1);
  row->addWidget(makeButton(
      "Leave the test", [this] { view_.leaveTest(); }, "quiet"));
  card->column()->addLayout(row);
  return card;
}

void PersonalityPage::refresh() {
  const bool profile = view_.state() == PersonalityView::State::profile;
  profile_->setVisible(profile);
  test_->setVisible(!profile);
  profile ? showProfile() : showTest();
}

void PersonalityPage::showProfile() {
  status_->setText(qt(view_.statusText()));
  setTitle(start_, view_.hasPersonality() ? "🔄 Retake Test" : "Take the test");
  personality_->setText(view_.hasPersonality()
                            ? qt(view_.personality())
                            : "Answer five questions aloud, twenty seconds each. What Kestrin "
                              "learns of how you speak goes into the texts it writes for you.");
  archetype_->setText(qt(view_.archetypeText()));
  traits_->setText(view_.archetype() ? qt(text::join(view_.archetype()->traits, " · ") + "\n" +
                                          view_.archetype()->stylePrompt)
                                     : "");
  voice_->setText(qt(view_.voiceText()));
  auto charts = view_.charts();
  if (charts == shownCharts_) return;
  clearLayout(charts_);
  for (const auto& chart : charts) {
    auto* widget = new RadarChartWidget(qt(chart.title));
    widget->setValues(chart.axisLabels, chart.values, qt(chart.description));
    charts_->addWidget(widget);
  }
  charts_->addStretch(1);
  shownCharts_ = std::move(charts);
}

void PersonalityPage::showTest() {
  using State = PersonalityView::State;
  const bool asking = view_.state() == State::question;
  for (QWidget* widget : {static_cast<QWidget*>(progress_), static_cast<QWidget*>(timer_),
                          static_cast<QWidget*>(record_), static_cast<QWidget*>(skip_)})
    widget->setVisible(asking);
  level_->setVisible(view_.isRecording() || view_.state() == State::processing);
  level_->setRange(0, view_.state() == State::processing ? 0 : 100);
  level_->setValue(int(view_.level() * 100));
  if (!asking) {
    const bool failed = view_.state() == State::failed;
    question_->setText(failed ? "Something went wrong" : "Creating your personality profile...");
    hint_->setText(failed ? qt(view_.failure()) : "This may take a moment");
    notice_->clear();
    return;
  }
  progress_->setText(qt(view_.progress()));
  question_->setText(QString(view_.question().emoji) + "  " + view_.question().question);
  hint_->setText(view_.question().hint);
  timer_->setText(qt(view_.timerText()));
  setRole(timer_, view_.isRecording() && view_.isTimeShort() ? "error" : "figure");
  notice_->setText(qt(view_.notice()));
  setTitle(record_, view_.recordTitle());
}

}  // namespace kestrin
