#include "shell/pages/mood_rings.h"

#include <QPainter>
#include <map>

#include "shell/design/controls.h"
#include "shell/pages/behavioral_profile_dialog.h"

namespace kestrin {
namespace {

constexpr int ringSize = 40, ringWidth = 7, wholeHeight = 58, wholeWidth = 132;
constexpr LAAudioChannel channels[] = {LAAudioChannel::microphone, LAAudioChannel::system};
constexpr const char* sides[] = {"You", "Other"};

}  // namespace

QColor emotionColor(const std::string& name) {
  static const std::map<std::string, const char*> colors{
      {"Neutral", "#8a939c"}, {"Happy", "#e8a921"},    {"Sad", "#4f8fe0"},    {"Angry", "#e0524d"},
      {"Fear", "#9a6be0"},    {"Surprise", "#2fb7b0"}, {"Disgust", "#6fa83a"}};
  const auto found = colors.find(name);
  return QColor(found == colors.end() ? "#8a939c" : found->second);
}

MoodRing::MoodRing(const QString& side) : side_(side) { setCursor(Qt::PointingHandCursor); }

void MoodRing::show(MiniMoodRingView view) {
  view_ = std::move(view);
  setAccessibleName("Behavioral profile: " + side_ + ", " + qt(view_.moodTag) +
                    (view_.topIntent.empty() ? QString() : ", " + qt(view_.topIntent)));
  setToolTip(accessibleName());
  update();
}

QSize MoodRing::sizeHint() const { return {wholeWidth, wholeHeight}; }

void MoodRing::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  if (hasFocus() || underMouse()) {
    painter.setPen(QPen(palette().color(QPalette::Highlight), 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);
  }
  const QRectF ring(4 + ringWidth / 2.0, (height() - ringSize) / 2.0 + ringWidth / 2.0,
                    ringSize - ringWidth, ringSize - ringWidth);
  double whole = 0, from = 90;
  for (const EmotionBarRow& each : view_.ring) whole += each.weight;
  for (const EmotionBarRow& each : view_.ring) {
    const double span = whole > 0 ? each.weight / whole * 360 : 0;
    painter.setPen(QPen(emotionColor(each.name), ringWidth, Qt::SolidLine, Qt::FlatCap));
    painter.drawArc(ring, int(from * 16), int(-span * 16));
    from -= span;
  }
  const QRect words = rect().adjusted(ringSize + 12, 5, -4, -5);
  const int line = words.height() / 3;
  const auto write = [&](int row, const QString& text, QPalette::ColorRole role, bool bold) {
    QFont font = this->font();
    font.setBold(bold);
    font.setPixelSize(bold ? 13 : 11);
    painter.setFont(font);
    painter.setPen(palette().color(role));
    painter.drawText(QRect(words.x(), words.y() + row * line, words.width(), line),
                     Qt::AlignVCenter | Qt::AlignLeft,
                     QFontMetrics(font).elidedText(text, Qt::ElideRight, words.width()));
  };
  write(0, side_, QPalette::Dark, false);
  write(1, qt(view_.moodTag), QPalette::WindowText, true);
  write(2, qt(view_.topIntent), QPalette::Dark, false);
}

MoodRings::MoodRings(BehavioralProfileManager& profiles) : profiles_(profiles), rings_{} {
  auto* row = new FlowLayout(this);
  row->setSpacing(4);
  for (size_t i = 0; i < rings_.size(); ++i) {
    rings_[i] = new MoodRing(sides[i]);
    connect(rings_[i], &QAbstractButton::clicked, this, [this, i] {
      auto* dialog =
          new BehavioralProfileDialog(profiles_, channels[i], channels[1 - i], sides[i], window());
      dialog->show();
      dialog->raise();
    });
    row->addWidget(rings_[i]);
  }
  updates_ = profiles_.observe([this] { refresh(); });
  refresh();
}

void MoodRings::refresh() {
  for (size_t i = 0; i < rings_.size(); ++i)
    rings_[i]->show(MiniMoodRingView::of(profiles_.profile(channels[i])));
}

}  // namespace kestrin
