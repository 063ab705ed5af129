#include "shell/pages/calendar_page.h"

#include <QPainter>
#include <QScrollBar>
#include <QTimer>

namespace kestrin {
namespace {

constexpr int hourHeight = 48, hoursWidth = 56, gap = 2, padding = 12;
constexpr int hoursOfDay = 24;

std::string describe(const CalendarEvent& event) {
  return event.title + ", " + event.timeString() + ", " + event.durationString();
}

std::string describeWithPlace(const CalendarEvent& event) {
  return describe(event) + (event.location ? ", " + *event.location : "");
}

/// There is room for the time below the title.
bool isTall(const PlacedEvent& placed) { return placed.endMinute - placed.startMinute >= 50; }

}  // namespace

/// The hours; appointments are children, so that assistive programs find each.
class CalendarPage::Grid final : public QWidget {
 public:
  explicit Grid(CalendarView& view) : view_(view) {
    setAccessibleName("Appointments");
    setMinimumHeight(hoursOfDay * hourHeight);
  }
  void rebuild() {
    for (QLabel* label : findChildren<QLabel*>()) {
      label->hide();
      label->deleteLater();
    }
    labels_.clear();
    texts_.clear();
    for (const CalendarDay& day : view_.days()) {
      for (const PlacedEvent& placed : day.placed) {
        auto* label = makeLabel("");
        setRole(label, "appointment");
        label->setParent(this);
        label->setAlignment(Qt::AlignTop | Qt::AlignLeft);
        label->setAccessibleName(qt(describe(placed.event)));
        label->setToolTip(qt(describeWithPlace(placed.event)));
        label->show();
        labels_.push_back(label);
        texts_.push_back({qt(placed.event.title), qt(placed.event.timeString()), isTall(placed)});
      }
    }
    arrange();
    update();
  }

 protected:
  void resizeEvent(QResizeEvent*) override { arrange(); }
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    const QColor line = palette().color(QPalette::Mid);
    for (int hour = 0; hour < hoursOfDay; ++hour) {
      const int y = hour * hourHeight;
      painter.setPen(line);
      painter.drawLine(hoursWidth, y, width(), y);
      painter.setPen(palette().color(QPalette::PlaceholderText));
      const int shown = hour % 12 == 0 ? 12 : hour % 12;
      painter.drawText(QRect(0, y - 8, hoursWidth - 8, 16), Qt::AlignRight | Qt::AlignVCenter,
                       hour == 0 ? "" : QString::number(shown) + (hour < 12 ? " AM" : " PM"));
    }
    painter.setPen(line);
    for (size_t i = 0; i < view_.days().size(); ++i)
      painter.drawLine(int(left(i)), 0, int(left(i)), height());
  }

 private:
  double dayWidth() const {
    return (width() - hoursWidth) / double(std::max<size_t>(1, view_.days().size()));
  }
  double left(size_t day) const { return hoursWidth + dayWidth() * double(day); }
  void arrange() {
    size_t next = 0;
    for (size_t i = 0; i < view_.days().size(); ++i) {
      for (const PlacedEvent& placed : view_.days()[i].placed) {
        if (next == labels_.size()) return;
        const double width = (dayWidth() - 2 * gap) / placed.columns;
        QLabel* label = labels_[next];
        label->setGeometry(int(left(i) + gap + width * placed.column),
                           placed.startMinute * hourHeight / 60 + 1, int(width) - gap,
                           (placed.endMinute - placed.startMinute) * hourHeight / 60 - gap);
        label->setText(texts_[next++].fitted(label->fontMetrics(), label->width() - padding));
      }
    }
  }

  struct Text {
    QString title, time;
    bool tall;  ///< there is a line for the time
    QString fitted(const QFontMetrics& metrics, int room) const {
      const auto cut = [&](const QString& line) {
        return metrics.elidedText(line, Qt::ElideRight, room);
      };
      return tall ? cut(title) + "\n" + cut(time) : cut(title + "  " + time);
    }
  };

  CalendarView& view_;
  std::vector<QLabel*> labels_;
  std::vector<Text> texts_;  ///< of the labels, whole
};

CalendarPage::CalendarPage(CalendarView& view)
    : view_(view),
      title_(makeLabel("", "title")),
      heads_(new QWidget),
      scroll_(new QScrollArea),
      grid_(new Grid(view)) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(24, 20, 24, 16);
  auto* row = new FlowLayout;
  row->addWidget(title_, 1);
  const auto button = [row](const char* text, const char* name, std::function<void()> clicked) {
    auto* made = makeButton(text, std::move(clicked));
    made->setAccessibleName(name);
    row->addWidget(made);
  };
  button("‹", "Earlier", [this] { view_.move(-1); });
  button("Today", "Today", [this] { view_.showToday(); });
  button("›", "Later", [this] { view_.move(1); });
  auto* spans = new QButtonGroup(this);
  day_ = makeSegment("Day", spans, [this] { view_.showWeek(false); });
  week_ = makeSegment("Week", spans, [this] { view_.showWeek(true); });
  for (QPushButton* each : {day_, week_}) row->addWidget(each);
  column->addLayout(row);
  column->addWidget(heads_);
  scroll_->setWidgetResizable(true);
  scroll_->setFrameShape(QFrame::NoFrame);
  scroll_->setWidget(grid_);
  column->addWidget(scroll_, 1);
  view_.onChange = [this] {
    if (isVisible()) refresh();
  };
}

CalendarPage::~CalendarPage() { view_.onChange = nullptr; }

void CalendarPage::showEvent(QShowEvent* event) {
  Page::showEvent(event);
  view_.load();
}

void CalendarPage::refresh() {
  title_->setText(qt(view_.title()));
  showChosen(view_.isWeek() ? week_ : day_);
  std::string wanted = view_.title();
  for (const CalendarDay& day : view_.days()) {
    wanted += "\n" + day.title + (day.isToday ? "*" : "");
    for (const CalendarEvent& event : day.allDay) wanted += "\n" + describeWithPlace(event);
    for (const PlacedEvent& placed : day.placed) wanted += "\n" + describeWithPlace(placed.event);
  }
  if (wanted == shown_) return;
  shown_ = wanted;
  delete heads_->layout();
  for (QWidget* child : heads_->findChildren<QWidget*>()) child->deleteLater();
  auto* row = new QHBoxLayout(heads_);
  row->setContentsMargins(hoursWidth, 0, 0, 0);
  for (const CalendarDay& day : view_.days()) {
    auto* head = new QVBoxLayout;
    auto* label = makeLabel(qt(day.title), day.isToday ? "badge" : "section");
    head->addWidget(label, 0, Qt::AlignHCenter);
    for (const CalendarEvent& event : day.allDay) {
      auto* whole = makeLabel(qt(event.title), "caption");
      whole->setToolTip(qt(describeWithPlace(event)));
      head->addWidget(whole, 0, Qt::AlignHCenter);
    }
    head->addStretch(1);
    row->addLayout(head, 1);
  }
  grid_->rebuild();
  QTimer::singleShot(0, this, [this] {
    scroll_->verticalScrollBar()->setValue(view_.firstHour() * hourHeight - 8);
  });
}

}  // namespace kestrin
