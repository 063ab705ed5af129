#include "shell/design/controls.h"

#include <QMessageBox>
#include <QPainter>
#include <QSignalBlocker>
#include <QStyle>
#include <map>

namespace kestrin {

void setRole(QWidget* widget, const char* role) {
  if (widget->property("role").toString() == role) return;
  widget->setProperty("role", role);
  widget->style()->unpolish(widget);
  widget->style()->polish(widget);
}

namespace {

/// A label keeps its selectable text as a document and lays that out for every width that is asked
/// for; nested layouts ask for the same few widths again and again.
class Paragraph final : public QLabel {
 public:
  using QLabel::QLabel;
  int heightForWidth(int width) const override {
    if (text() != measuredText_ || heights_.size() > widthsKept) {
      heights_.clear();
      measuredText_ = text();
    }
    const auto known = heights_.find(width);
    if (known != heights_.end()) return known->second;
    return heights_[width] = QLabel::heightForWidth(width);
  }

 protected:
  void changeEvent(QEvent* event) override {
    heights_.clear();
    QLabel::changeEvent(event);
  }

 private:
  static constexpr size_t widthsKept = 16;
  mutable std::map<int, int> heights_;
  mutable QString measuredText_;
};

}  // namespace

QLabel* makeLabel(const QString& text, const char* role) {
  auto* label = new QLabel(text);
  // Much of what is shown was said, or was written by a page or a model.
  label->setTextFormat(Qt::PlainText);
  label->setProperty("role", role);
  return label;
}

QLabel* makeParagraph(const QString& text, const char* role) {
  auto* label = new Paragraph(text);
  label->setTextFormat(Qt::PlainText);
  label->setProperty("role", role);
  label->setWordWrap(true);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  return label;
}

QPushButton* makeButton(const QString& title, std::function<void()> clicked, const char* role) {
  auto* button = new QPushButton;
  setTitle(button, title);
  button->setProperty("role", role);
  button->setCursor(Qt::PointingHandCursor);
  QObject::connect(button, &QPushButton::clicked, button,
                   [clicked = std::move(clicked)] { clicked(); });
  return button;
}

void setTitle(QPushButton* button, const QString& title) {
  // An ampersand in a title is not a shortcut.
  button->setText(QString(title).replace("&", "&&"));
  button->setAccessibleName(title);
}

QPushButton* makeSegment(const QString& title, QButtonGroup* group, std::function<void()> chosen) {
  auto* button = makeButton(
      title, [] {}, "segment");
  button->setCheckable(true);
  group->addButton(button);
  QObject::connect(button, &QPushButton::toggled, button, [chosen = std::move(chosen)](bool on) {
    if (on) chosen();
  });
  return button;
}

void showChosen(QPushButton* segment) {
  const QSignalBlocker quiet(segment);
  segment->setChecked(true);
}

namespace {

/// The arrow is drawn here: a style sheet has none without a picture file.
class Choices final : public QComboBox {
 protected:
  void paintEvent(QPaintEvent* event) override {
    QComboBox::paintEvent(event);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setOpacity(isEnabled() ? 1 : 0.5);
    painter.setPen(
        QPen(palette().color(QPalette::Dark), 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    const QPointF tip(width() - 14.0, height() / 2.0 + 2.5);
    const QPointF arrow[] = {tip - QPointF(4.5, 4.5), tip, tip - QPointF(-4.5, 4.5)};
    painter.drawPolyline(arrow, 3);
  }
};

}  // namespace

QComboBox* makeChoices(const QString& name) {
  auto* box = new Choices;
  box->setAccessibleName(name);
  box->setAccessibleDescription(name);
  return box;
}

QProgressBar* makeBusyBar(const QString& name) {
  auto* bar = new QProgressBar;
  bar->setAccessibleName(name);
  bar->setRange(0, 0);
  bar->setTextVisible(false);
  return bar;
}

QPushButton* makeTile(const QString& text, std::function<void()> clicked) {
  auto* tile = makeButton({}, std::move(clicked), "tile");
  tile->setAccessibleName(text);
  auto* column = new QVBoxLayout(tile);
  column->setContentsMargins(14, 12, 14, 12);
  auto* label = makeLabel(text);
  label->setWordWrap(true);
  label->setAttribute(Qt::WA_TransparentForMouseEvents);
  column->addWidget(label);
  // The layout knows how tall the broken lines are; the button's own hint does not.
  tile->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Minimum);
  tile->setMinimumHeight(52);
  return tile;
}

QWidget* makeEmptyState(const std::vector<std::string>& lines) {
  auto* state = new QWidget;
  auto* column = new QVBoxLayout(state);
  column->setContentsMargins(24, 48, 24, 48);
  column->setSpacing(6);
  for (size_t i = 0; i < lines.size(); ++i) {
    auto* line = makeLabel(qt(lines[i]), i == 0 ? "heading" : "caption");
    line->setAlignment(Qt::AlignCenter);
    line->setWordWrap(true);
    column->addWidget(line);
  }
  return state;
}

Card::Card(QWidget* parent) : QFrame(parent), column_(new QVBoxLayout(this)) {
  setProperty("role", "card");
  column_->setContentsMargins(16, 14, 16, 14);
  column_->setSpacing(8);
}

Switch::Switch(QWidget* parent) : QCheckBox(parent) { setCursor(Qt::PointingHandCursor); }

QSize Switch::sizeHint() const { return {42, 24}; }

void Switch::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF track((width() - 38) / 2.0, (height() - 20) / 2.0, 38, 20);
  if (hasFocus()) {
    painter.setPen(QPen(palette().color(QPalette::Highlight), 1.5));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(track.adjusted(-2, -2, 2, 2), 12, 12);
  }
  painter.setPen(Qt::NoPen);
  painter.setOpacity(isEnabled() ? 1 : 0.5);
  painter.setBrush(palette().color(isChecked() ? QPalette::Highlight : QPalette::Midlight));
  painter.drawRoundedRect(track, 10, 10);
  painter.setBrush(Qt::white);
  const double left = isChecked() ? track.right() - 18 : track.left() + 2;
  painter.drawEllipse(QRectF(left, track.top() + 2, 16, 16));
}

Column::Column(int widest, QWidget* parent) : QScrollArea(parent) {
  auto* content = new QWidget;
  auto* row = new QHBoxLayout(content);
  row->setContentsMargins(28, 24, 28, 24);
  middle_ = new QWidget;
  middle_->setMaximumWidth(widest);
  column_ = new QVBoxLayout(middle_);
  column_->setContentsMargins(0, 0, 0, 0);
  column_->setSpacing(14);
  row->addStretch(1);
  // Not the column's own alignment: that would hold it to the height that it has at its best width.
  row->addWidget(middle_, 1000, Qt::AlignTop);
  row->addStretch(1);
  setWidget(content);
  setWidgetResizable(true);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setFrameShape(QFrame::NoFrame);
}

void Column::centre() { widget()->layout()->setAlignment(middle_, Qt::AlignVCenter); }

void clearLayout(QLayout* layout) {
  while (QLayoutItem* item = layout->takeAt(0)) {
    if (QWidget* widget = item->widget()) {
      widget->hide();
      widget->deleteLater();
    }
    if (QLayout* inner = item->layout()) clearLayout(inner);
    delete item;
  }
}

void showAlert(QWidget* parent, const std::string& title, const std::string& text,
               const std::vector<std::string>& buttons, std::function<void(size_t)> answered) {
  auto* box = new QMessageBox(parent);
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setWindowTitle("Kestrin");
  box->setTextFormat(Qt::PlainText);
  box->setText(qt(title));
  box->setInformativeText(qt(text));
  std::vector<QAbstractButton*> made;
  for (const std::string& name : buttons) {
    // The last one is what closing the window means.
    const bool last = made.size() + 1 == buttons.size();
    made.push_back(
        box->addButton(qt(name), last ? QMessageBox::RejectRole : QMessageBox::AcceptRole));
  }
  QObject::connect(box, &QMessageBox::finished, box,
                   [box, made, answered = std::move(answered)](int) {
                     for (size_t i = 0; i < made.size(); ++i) {
                       if (box->clickedButton() == made[i]) return answered(i);
                     }
                     answered(made.empty() ? 0 : made.size() - 1);
                   });
  box->open();
}

}  // namespace kestrin
