#include "shell/start_cover.h"

#include <QEvent>
#include <QProgressBar>

namespace kestrin {
namespace {

QString stateText(ServiceState state) {
  switch (state) {
    case ServiceState::ready:
      return "✓  ";
    case ServiceState::failed:
      return "✕  ";
    case ServiceState::pending:
      break;
  }
  return "…  ";
}

}  // namespace

StartCover::StartCover(SetupChecklist& setup, LoadingOverlayView& loading, QWidget* parent)
    : QWidget(parent),
      setup_(setup),
      loading_(loading),
      services_(new QWidget),
      items_(new QWidget),
      status_(makeLabel("", "caption")) {
  setAttribute(Qt::WA_StyledBackground);
  setProperty("role", "window");
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  auto* page = new Column(560);
  outer->addWidget(page);
  column_ = page->column();
  page->centre();

  auto* servicesColumn = new QVBoxLayout(services_);
  servicesColumn->addWidget(makeLabel("Starting Kestrin", "title"));
  servicesColumn->addWidget(makeBusyBar("Starting"));
  auto* card = new Card;
  for (QLabel*& row : rows_) {
    row = makeLabel("");
    card->column()->addWidget(row);
  }
  servicesColumn->addWidget(card);
  servicesColumn->addWidget(status_);
  column_->addWidget(services_);

  auto* itemsColumn = new QVBoxLayout(items_);
  itemsColumn->addWidget(makeLabel("Before you start", "title"));
  itemsColumn->addWidget(
      makeParagraph("Kestrin starts by itself once all of this is in place.", "caption"));
  itemList_ = new QVBoxLayout;
  itemsColumn->addLayout(itemList_);
  itemsColumn->addWidget(makeButton("Start anyway", [this] { setup_.accept(); }), 0, Qt::AlignLeft);
  column_->addWidget(items_);
  parent->installEventFilter(this);
  loading_.onChange = [this] { refresh(); };
  setGeometry(parent->rect());
  refresh();
}

StartCover::~StartCover() { loading_.onChange = nullptr; }

bool StartCover::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Resize) setGeometry(static_cast<QWidget*>(watched)->rect());
  return false;
}

void StartCover::refresh() {
  const bool loading = loading_.phase() == LoadingOverlayView::Phase::loading;
  setVisible(setup_.isShown() || loading);
  services_->setVisible(!setup_.isShown());
  items_->setVisible(setup_.isShown());
  if (setup_.isShown()) {
    showSetup();
  } else {
    showServices();
  }
  raise();
}

void StartCover::showSetup() {
  std::string wanted = setup_.summary();
  for (const SetupItem& item : setup_.items()) wanted += "\n" + item.finding.detail;
  if (wanted == shownItems_) return;
  shownItems_ = std::move(wanted);
  clearLayout(itemList_);
  for (const SetupItem& item : setup_.items()) {
    auto* card = new Card;
    const bool well = item.finding.state == Finding::State::ok;
    card->column()->addWidget(
        makeLabel((well ? "✓  " : "✕  ") + qt(item.finding.check), "heading"));
    card->column()->addWidget(makeParagraph(qt(item.finding.detail), "caption"));
    if (!well && !item.finding.mend.empty()) {
      card->column()->addWidget(makeParagraph(qt(item.finding.mend)));
    }
    itemList_->addWidget(card);
  }
}

void StartCover::showServices() {
  const auto& states = loading_.services();
  const std::pair<ServiceState, QString> rows[4] = {{states.asr, "Speech recogniser"},
                                                    {states.llm, qt(loading_.llmName())},
                                                    {states.agent, "Agent"},
                                                    {states.backend, "Records"}};
  for (size_t i = 0; i < 4; ++i) rows_[i]->setText(stateText(rows[i].first) + rows[i].second);
  status_->setText(qt(loading_.statusText()));
}

}  // namespace kestrin
