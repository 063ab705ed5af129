#pragma once

#include <QBoxLayout>
#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <functional>
#include <string>
#include <vector>

#include "shell/design/flow_layout.h"

namespace kestrin {

// The parts that every page is made of. All of them show plain text, never markup. Parents own what
// is made here as usual with this toolkit.

inline QString qt(const std::string& text) { return QString::fromStdString(text); }

/// Names the widget's part in the look; see Theme.
void setRole(QWidget* widget, const char* role);

/// `role`: "title", "heading", "section", "figure", "caption", "badge", "error" or none.
QLabel* makeLabel(const QString& text, const char* role = "");
/// One that breaks its lines, and whose text can be selected.
QLabel* makeParagraph(const QString& text, const char* role = "");
/// `role`: "primary", "quiet" or none.
QPushButton* makeButton(const QString& title, std::function<void()> clicked, const char* role = "");
/// What the button is called from now on, also for assistive programs.
void setTitle(QPushButton* button, const QString& title);
/// One of several beside each other, of which one is chosen. `chosen` runs when the user chooses
/// it, be it with the mouse, the keys or an assistive program, which toggles and does not click.
QPushButton* makeSegment(const QString& title, QButtonGroup* group, std::function<void()> chosen);
/// Shows the segment as the chosen one of its group, without choosing it.
void showChosen(QPushButton* segment);
/// A list of choices. `name` says what it is for: on this desktop its own name is what is chosen.
QComboBox* makeChoices(const QString& name);
/// Progress of which only the going on is known.
QProgressBar* makeBusyBar(const QString& name);
/// A larger button whose text breaks its lines.
QPushButton* makeTile(const QString& text, std::function<void()> clicked);
/// What stands in the place of an empty list.
QWidget* makeEmptyState(const std::vector<std::string>& lines);

/// A framed group with a column of its own.
class Card : public QFrame {
 public:
  explicit Card(QWidget* parent = nullptr);
  QVBoxLayout* column() const { return column_; }

 private:
  QVBoxLayout* column_;
};

/// A switch drawn as a sliding knob; a check box to the keyboard and to assistive technology.
class Switch final : public QCheckBox {
 public:
  explicit Switch(QWidget* parent = nullptr);
  QSize sizeHint() const override;

 protected:
  bool hitButton(const QPoint& position) const override { return rect().contains(position); }
  void paintEvent(QPaintEvent* event) override;
};

/// A page that scrolls: one column in the middle, no wider than is good to read.
class Column final : public QScrollArea {
 public:
  explicit Column(int widest = 860, QWidget* parent = nullptr);
  QVBoxLayout* column() const { return column_; }
  /// In the middle of the height as well.
  void centre();

 private:
  QWidget* middle_;
  QVBoxLayout* column_;
};

/// Removes and deletes everything in the layout.
void clearLayout(QLayout* layout);

/// Shows a question or a notice above `parent` without waiting; `answered` gets the index of the
/// button pressed, and the last one when it is closed.
void showAlert(QWidget* parent, const std::string& title, const std::string& text,
               const std::vector<std::string>& buttons, std::function<void(size_t)> answered);

}  // namespace kestrin
