#include "shell/pages/history_page.h"

#include <QDateTime>
#include <QLocale>

#include "platform/dates/dates.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t previewLength = 160;
constexpr std::array figureNames{"Words", "Words a minute", "Days in a row", "Dictations"};

QString preview(const std::string& text) {
  const std::string cut = text::prefix(text, previewLength);
  return qt(cut).simplified() + (cut.size() < text.size() ? "…" : "");
}

}  // namespace

HistoryPage::HistoryPage(MainWindowController& window, std::function<void()> fetchUsage)
    : window_(window),
      fetchUsage_(std::move(fetchUsage)),
      modes_(new BarChart("Modes used")),
      applications_(new BarChart("Applications used")),
      noUsage_(makeLabel(ModeHistogram::emptyText, "caption")),
      search_(new QLineEdit),
      list_(new QVBoxLayout) {
  auto* whole = new QVBoxLayout(this);
  whole->setContentsMargins(0, 0, 0, 0);
  auto* page = new Column;
  whole->addWidget(page);
  page->column()->addWidget(makeLabel("History", "title"));

  auto* figures = new FlowLayout;
  for (size_t i = 0; i < figures_.size(); ++i) {
    auto* card = new Card;
    figures_[i] = makeLabel("0", "figure");
    card->column()->setSpacing(0);
    card->column()->addWidget(figures_[i]);
    card->column()->addWidget(makeLabel(figureNames[i], "caption"));
    figures->addWidget(card, 1);
  }
  page->column()->addLayout(figures);

  auto* usage = new Card;
  usage->column()->addWidget(makeLabel("USAGE", "section"));
  usage->column()->addWidget(noUsage_);
  auto* charts = new FlowLayout;
  charts->setSpacing(28);
  charts->addWidget(modes_, 1, Qt::AlignTop);
  charts->addWidget(applications_, 1, Qt::AlignTop);
  usage->column()->addLayout(charts);
  page->column()->addWidget(usage);

  search_->setPlaceholderText("Search history");
  search_->setAccessibleName("Search history");
  search_->setClearButtonEnabled(true);
  search_->setText(qt(window_.history().historySearchQuery()));
  connect(search_, &QLineEdit::textChanged, this,
          [this](const QString& query) { window_.history().setSearchQuery(query.toStdString()); });
  page->column()->addWidget(search_);
  list_->setSpacing(8);
  page->column()->addLayout(list_);
}

void HistoryPage::showEvent(QShowEvent* event) {
  Page::showEvent(event);
  fetchUsage_();
}

void HistoryPage::reload() {
  window_.fetchHistoryFromServer();
  window_.history().fetchStats();
  fetchUsage_();
}

void HistoryPage::refresh() {
  showFigures();
  showEntries();
}

void HistoryPage::showFigures() {
  const UserStats& stats = window_.history().currentStats();
  const std::array values{stats.totalWords, stats.averageWPM, stats.streak,
                          stats.transcriptionCount};
  for (size_t i = 0; i < values.size(); ++i) {
    figures_[i]->setText(locale().toString(qlonglong(values[i])));
  }
  const ModeHistogram& usage = window_.history().modeHistogram();
  noUsage_->setVisible(usage.isEmpty());
  modes_->setVisible(!usage.modes.empty());
  applications_->setVisible(!usage.applications.empty());
  modes_->setValues(usage.modes);
  applications_->setValues(usage.applications);
}

void HistoryPage::showEntries() {
  const auto& expanded = window_.history().expandedHistoryEntries();
  const std::vector<HistoryDay> days = window_.groupEntriesByDate();
  std::vector<std::string> wanted = window_.historyEmptyText();
  for (const HistoryDay& day : days) {
    wanted.push_back(day.title);
    for (const HistoryEntry& entry : day.entries) {
      wanted.push_back(entry.id + (expanded.count(entry.id) > 0 ? "+" : ""));
    }
  }
  if (wanted == shown_) return;
  shown_ = std::move(wanted);
  clearLayout(list_);
  if (days.empty()) list_->addWidget(makeEmptyState(window_.historyEmptyText()));
  for (const HistoryDay& day : days) {
    list_->addWidget(makeLabel(qt(day.title), "section"));
    for (const HistoryEntry& entry : day.entries) {
      list_->addWidget(entryCard(entry, expanded.count(entry.id) > 0));
    }
  }
}

QWidget* HistoryPage::entryCard(const HistoryEntry& entry, bool expanded) {
  auto* card = new Card;
  auto* head = new FlowLayout;
  head->addWidget(makeLabel(qt(entry.mode), "badge"));
  if (!entry.appContext.empty()) head->addWidget(makeLabel(qt(entry.appContext), "caption"));
  head->addStretch(1);
  head->addWidget(makeLabel(
      locale().toString(
          QDateTime::fromMSecsSinceEpoch(std::chrono::duration_cast<std::chrono::milliseconds>(
                                             entry.timestamp.time_since_epoch())
                                             .count())
              .time(),
          QLocale::ShortFormat),
      "caption"));
  auto* more = makeButton(
      expanded ? "Show less" : "Show all",
      [this, id = entry.id] { window_.history().toggleExpanded(id); }, "quiet");
  head->addWidget(more);
  card->column()->addLayout(head);
  card->column()->addWidget(makeParagraph(expanded ? qt(entry.output) : preview(entry.output)));
  if (expanded && !entry.input.empty() && entry.input != entry.output) {
    card->column()->addWidget(makeLabel("SAID", "section"));
    card->column()->addWidget(makeParagraph(qt(entry.input), "caption"));
  }
  return card;
}

}  // namespace kestrin
