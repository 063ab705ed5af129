#include "shell/pages/terminal_page.h"

#include <QFontDatabase>
#include <QKeyEvent>
#include <QScrollBar>

#include "shell/design/controls.h"

namespace kestrin {
namespace {

/// On the dark ground that the terminal has in every look.
QColor colorOf(TerminalColor color) {
  switch (color) {
    case TerminalColor::heading:
      return {120, 170, 255};
    case TerminalColor::command:
      return {240, 240, 245};
    case TerminalColor::muted:
      return {140, 145, 155};
    case TerminalColor::success:
      return {90, 200, 120};
    case TerminalColor::warning:
      return {240, 180, 80};
    case TerminalColor::info:
      return {100, 200, 220};
    case TerminalColor::error:
      return {255, 105, 95};
    case TerminalColor::prompt:
      return {110, 220, 150};
    case TerminalColor::normal:
      break;
  }
  return {215, 218, 224};
}

}  // namespace

TerminalPage::TerminalPage(TerminalView& view)
    : view_(view), output_(new QTextEdit), input_(new QLineEdit), stop_(nullptr) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(24, 20, 24, 16);
  column->setSpacing(10);
  auto* head = new FlowLayout;
  auto* titles = new QVBoxLayout;
  titles->setSpacing(2);
  titles->addWidget(makeLabel(TerminalView::header, "title"));
  titles->addWidget(makeLabel(TerminalView::subtitle, "caption"));
  head->addLayout(titles, 1);
  stop_ = makeButton("Stop", [this] { view_.stopProcess(); });
  head->addWidget(stop_, 0, Qt::AlignBottom);
  head->addWidget(makeButton(TerminalView::clearTitle, [this] { view_.clearTerminal(); }), 0,
                  Qt::AlignBottom);
  column->addLayout(head);

  const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  setRole(output_, "terminal");
  output_->setAccessibleName("Output");
  output_->setReadOnly(true);
  output_->setFont(fixed);
  output_->setUndoRedoEnabled(false);
  column->addWidget(output_, 1);
  auto* row = new QHBoxLayout;
  auto* prompt = makeLabel(TerminalView::prompt);
  prompt->setFont(fixed);
  row->addWidget(prompt);
  input_->setAccessibleName("Command");
  input_->setPlaceholderText(TerminalView::placeholder);
  input_->setFont(fixed);
  input_->installEventFilter(this);
  connect(input_, &QLineEdit::textEdited, this,
          [this](const QString& text) { view_.setInput(text.toStdString()); });
  connect(input_, &QLineEdit::returnPressed, this, [this] { view_.executeCommand(); });
  row->addWidget(input_, 1);
  column->addLayout(row);
  setFocusProxy(input_);
  view_.onChange = [this] {
    if (isVisible()) refresh();
  };
}

TerminalPage::~TerminalPage() { view_.onChange = nullptr; }

bool TerminalPage::eventFilter(QObject* watched, QEvent* event) {
  if (watched == input_ && event->type() == QEvent::KeyPress) {
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (key == Qt::Key_Up || key == Qt::Key_Down) {
      view_.navigateHistory(key == Qt::Key_Up ? 1 : -1);
      return true;
    }
  }
  return Page::eventFilter(watched, event);
}

void TerminalPage::refresh() {
  if (clearings_ != view_.clearings()) {
    clearings_ = view_.clearings();
    drawn_ = 0;
    output_->clear();
  }
  const bool more = drawn_ < view_.output().size();
  QTextCursor cursor(output_->document());
  cursor.movePosition(QTextCursor::End);
  for (; drawn_ < view_.output().size(); ++drawn_) {
    const TerminalSpan& span = view_.output()[drawn_];
    QTextCharFormat format;
    format.setForeground(colorOf(span.color));
    // The look of the window sets a type face for every widget.
    format.setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    cursor.insertText(qt(span.text), format);
  }
  if (more) output_->verticalScrollBar()->setValue(output_->verticalScrollBar()->maximum());
  if (input_->text() != qt(view_.input())) input_->setText(qt(view_.input()));
  stop_->setVisible(view_.hasProcess());
}

}  // namespace kestrin
