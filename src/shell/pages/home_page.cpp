#include "shell/pages/home_page.h"

#include "platform/text/text.h"
#include "shell/pages/active_call_card.h"

namespace kestrin {

HomePage::HomePage(HomeView& view, GmailPanel& gmail, Calls& calls,
                   std::function<void(const std::string&)> openURL,
                   std::function<void()> connectAccount)
    : view_(view), openURL_(std::move(openURL)) {
  auto* whole = new QVBoxLayout(this);
  whole->setContentsMargins(0, 0, 0, 0);
  auto* page = new Column;
  whole->addWidget(page);
  auto* head = new FlowLayout;
  auto* titles = new QVBoxLayout;
  titles->setSpacing(2);
  greeting_ = makeLabel("", "title");
  titles->addWidget(greeting_);
  date_ = makeLabel("", "caption");
  titles->addWidget(date_);
  head->addLayout(titles, 1);
  weather_ = makeLabel("", "heading");
  head->addWidget(weather_, 0, Qt::AlignTop);
  page->column()->addLayout(head);
  page->column()->addWidget(new ActiveCallCard(calls));
  page->column()->addWidget(makeBanner());
  page->column()->addWidget(makeBriefing());
  page->column()->addLayout(makeChips());
  panel_ = new Card;
  makePanel();
  page->column()->addWidget(panel_);
  page->column()->addWidget(makeSchedule());
  page->column()->addWidget(new MailCard(gmail, std::move(connectAccount)));
  view_.onChange = [this] {
    if (isVisible()) refresh();
  };
}

HomePage::~HomePage() { view_.onChange = nullptr; }

QWidget* HomePage::makeBanner() {
  bannerCard_ = new Card;
  bannerCard_->column()->addWidget(makeLabel(HomeView::bannerTitle, "section"));
  auto* row = new FlowLayout;
  banner_ = makeParagraph("");
  row->addWidget(banner_, 1);
  row->addWidget(makeButton("Speak", [this] { view_.speakBanner(); }));
  row->addWidget(makeButton(
      "Dismiss", [this] { view_.dismissBanner(); }, "quiet"));
  bannerCard_->column()->addLayout(row);
  return bannerCard_;
}

QWidget* HomePage::makeBriefing() {
  auto* card = new Card;
  card->column()->addWidget(makeLabel("YOUR LATEST", "section"));
  briefing_ = makeParagraph("");
  card->column()->addWidget(briefing_);
  preparing_ = makeBusyBar("Preparing your latest");
  card->column()->addWidget(preparing_);
  play_ = makeButton(
      "▶  Play", [this] { view_.playLatestBriefing(); }, "primary");
  play_->setAccessibleName("Play your latest");
  card->column()->addWidget(play_, 0, Qt::AlignLeft);
  return card;
}

QLayout* HomePage::makeChips() {
  auto* row = new FlowLayout;
  for (const HomeView::Chip& chip : HomeView::quickActionChips()) {
    row->addWidget(makeButton(
        chip.title, [this, query = std::string(chip.query)] { view_.handleQuickAction(query); }));
  }
  row->addStretch(1);
  return row;
}

QWidget* HomePage::makeSchedule() {
  auto* card = new Card;
  card->column()->addWidget(makeLabel("TODAY", "section"));
  schedule_ = new QVBoxLayout;
  schedule_->setSpacing(6);
  card->column()->addLayout(schedule_);
  return card;
}

QWidget* HomePage::makePanel() {
  auto* head = new QHBoxLayout;
  panelTitle_ = makeLabel("", "heading");
  head->addWidget(panelTitle_, 1);
  auto* close = makeButton(
      "✕", [this] { view_.closePanel(); }, "quiet");
  close->setAccessibleName("Close the panel");
  head->addWidget(close);
  panel_->column()->addLayout(head);
  panelLoading_ = makeBusyBar("Working");
  panel_->column()->addWidget(panelLoading_);
  panelText_ = new Reading;
  panelText_->onLink = openURL_;
  panel_->column()->addWidget(panelText_);
  panelItems_ = new QVBoxLayout;
  panelItems_->setSpacing(6);
  panel_->column()->addLayout(panelItems_);
  return panel_;
}

void HomePage::refresh() {
  const HomeCaches& caches = view_.caches();
  greeting_->setText(qt(view_.salutation()));
  date_->setText(qt(view_.dateLine()));
  banner_->setText(qt(view_.banner()));
  bannerCard_->setVisible(!view_.banner().empty());
  weather_->setText(qt(caches.cachedWeatherOneliner()));
  weather_->setVisible(!caches.cachedWeatherOneliner().empty());
  const std::string& text = caches.cachedLatestBriefingText();
  briefing_->setText(text.empty() ? "Your day in a few sentences: weather, appointments and news."
                                  : qt(text));
  preparing_->setVisible(caches.isLatestBriefingLoading());
  showSchedule();
  showPanel();
}

void HomePage::showSchedule() {
  std::string wanted = "x";
  for (const CalendarEvent& event : view_.todayEvents())
    wanted += "\n" + event.id + "\n" + event.title + "\n" + event.timeString() + "\n" +
              event.durationString() + "\n" + event.calendarName;
  if (wanted == shownSchedule_) return;
  shownSchedule_ = wanted;
  clearLayout(schedule_);
  if (view_.todayEvents().empty())
    schedule_->addWidget(makeLabel("Nothing on the calendar today", "caption"));
  for (const CalendarEvent& event : view_.todayEvents()) {
    auto* row = new QHBoxLayout;
    auto* time = makeLabel(qt(event.timeString()), "caption");
    time->setFixedWidth(80);
    row->addWidget(time);
    row->addWidget(makeLabel(qt(event.title)), 1);
    row->addWidget(
        makeLabel(qt(event.isAllDay ? event.calendarName : event.durationString()), "caption"));
    schedule_->addLayout(row);
  }
}

void HomePage::showPanel() {
  const HomeView::Panel& panel = view_.panel();
  panel_->setVisible(panel.isOpen());
  if (!panel.isOpen()) return;
  panelTitle_->setText(qt(panel.title));
  panelLoading_->setVisible(panel.isLoading);
  std::string wanted = panel.title + "\n" + panel.text;
  for (const auto& item : panel.items)
    wanted += "\n" + item.title + "\n" + item.source + "\n" + item.url;
  if (wanted == shownPanel_) return;
  shownPanel_ = wanted;
  panelText_->setVisible(!panel.text.empty());
  panelText_->setMarkdownText(panel.text);
  clearLayout(panelItems_);
  for (const auto& item : panel.items) {
    const QString words = qt(item.title) + (item.source.empty() ? "" : "\n" + qt(item.source));
    if (item.url.empty()) {
      panelItems_->addWidget(makeParagraph(words));
    } else {
      panelItems_->addWidget(makeTile(words, [this, url = item.url] { openURL_(url); }));
    }
  }
}

}  // namespace kestrin
