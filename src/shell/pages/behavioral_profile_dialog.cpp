#include "shell/pages/behavioral_profile_dialog.h"

#include "shell/pages/mood_rings.h"

namespace kestrin {
namespace {

constexpr QSize dialogSize(520, 640), leastSize(360, 320);

}  // namespace

BehavioralProfileDialog::BehavioralProfileDialog(BehavioralProfileManager& profiles,
                                                 LAAudioChannel side, LAAudioChannel other,
                                                 const std::string& title, QWidget* parent)
    : QDialog(parent),
      profiles_(profiles),
      side_(side),
      otherSide_(other),
      view_(title),
      dominant_(makeLabel("", "caption")),
      note_(makeParagraph("", "caption")),
      tiles_(new FlowLayout),
      emotions_(new ShareBars("Emotions")),
      intents_(new ShareBars(BehavioralProfileDetailWindow::intentDistribution)),
      gauges_(new Gauges(BehavioralProfileDetailWindow::emotionalDimensions)) {
  setAttribute(Qt::WA_DeleteOnClose);
  setWindowTitle(qt(view_.heading()));
  setMinimumSize(leastSize);
  resize(dialogSize);
  build();
  view_.onChange = [this] { refresh(); };
  const auto show = [this] { view_.show(profiles_.profile(side_), profiles_.profile(otherSide_)); };
  updates_ = profiles_.observe(show);
  show();
}

void BehavioralProfileDialog::build() {
  using View = BehavioralProfileDetailWindow;
  auto* whole = new QVBoxLayout(this);
  whole->setContentsMargins(0, 0, 0, 0);
  auto* page = new Column;
  whole->addWidget(page);
  auto* column = page->column();
  column->addWidget(makeParagraph(qt(view_.heading()), "heading"));
  column->addWidget(dominant_);
  column->addLayout(tiles_);
  column->addWidget(makeParagraph("A thin mark shows the other side.", "caption"));
  const auto add = [column](const char* title, QWidget* chart, QWidget* below) {
    auto* card = new Card;
    card->column()->addWidget(makeLabel(title, "section"));
    card->column()->addWidget(chart);
    if (below != nullptr) card->column()->addWidget(below);
    column->addWidget(card);
  };
  add("Emotions", emotions_, nullptr);
  add(View::emotionalDimensions, gauges_, makeParagraph(View::legend, "caption"));
  add(View::intentDistribution, intents_, note_);
}

void BehavioralProfileDialog::showTiles() {
  clearLayout(tiles_);
  for (const StatisticsTile& tile : view_.statistics()) {
    auto* card = new Card;
    card->column()->setSpacing(0);
    if (!tile.value.empty()) card->column()->addWidget(makeLabel(qt(tile.value), "heading"));
    card->column()->addWidget(makeLabel(qt(tile.title), "caption"));
    tiles_->addWidget(card, 1);
  }
}

void BehavioralProfileDialog::refresh() {
  dominant_->setText(qt(view_.dominantEmotion() + " · " + view_.segmentsText()));
  showTiles();
  std::vector<ShareBars::Row> emotions;
  for (const EmotionBarRow& row : view_.emotionRows())
    emotions.push_back({qt(row.name), row.weight, row.comparison, emotionColor(row.name)});
  emotions_->setRows(std::move(emotions));
  std::vector<Gauges::Row> gauges;
  for (const VADGaugeRow& row : view_.gauges()) {
    gauges.push_back({qt(row.name), qt(row.low), qt(row.high), row.value, qt(row.valueText),
                      row.comparison, qt(row.comparisonText)});
  }
  gauges_->setRows(std::move(gauges));
  std::vector<ShareBars::Row> intents;
  for (const IntentBarRow& row : view_.intentRows())
    intents.push_back(
        {QString::number(row.rank) + ".  " + qt(row.label), row.weight, std::nullopt, {}});
  intents_->setVisible(!intents.empty());
  intents_->setRows(std::move(intents));
  note_->setText(qt(view_.intentsNote()));
  note_->setVisible(!view_.intentsNote().empty());
}

}  // namespace kestrin
