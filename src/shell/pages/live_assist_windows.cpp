#include "shell/pages/live_assist_windows.h"

#include <QFileDialog>
#include <QSignalBlocker>

namespace kestrin {
namespace {

constexpr QSize dialogSize(560, 520);

/// A window with one column, that goes when it is closed.
QVBoxLayout* columnOf(QDialog* dialog, const char* title) {
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setWindowTitle(title);
  dialog->resize(dialogSize);
  auto* column = new QVBoxLayout(dialog);
  column->setContentsMargins(20, 20, 20, 20);
  column->addWidget(makeLabel(title, "heading"));
  return column;
}

}  // namespace

SessionHistoryDialog::SessionHistoryDialog(SessionHistoryWindow& window, QWidget* parent)
    : QDialog(parent), window_(window), text_(makeParagraph("", "caption")), cards_(new Column) {
  auto* column = columnOf(this, "Sessions");
  column->addWidget(text_);
  column->addWidget(cards_, 1);
  connect(this, &QDialog::rejected, this, [this] { window_.close(); });
  window_.onChange = [this] { refresh(); };
  refresh();
}

SessionHistoryDialog::~SessionHistoryDialog() { window_.onChange = nullptr; }

void SessionHistoryDialog::refresh() {
  if (!window_.isOpen()) return accept();
  text_->setText(qt(window_.text()));
  clearLayout(cards_->column());
  for (const auto& card : window_.cards()) {
    auto* frame = new Card;
    auto* open = makeTile(qt(card.title), [this, id = card.id] { window_.choose(id); });
    frame->column()->addWidget(open);
    if (!card.summary.empty()) frame->column()->addWidget(makeParagraph(qt(card.summary)));
    frame->column()->addWidget(
        makeLabel(qt(card.date + "  •  " + card.duration + "  •  " + card.counts), "caption"));
    auto* foot = new FlowLayout;
    foot->addWidget(makeLabel(qt(card.contact), "caption"), 1);
    if (!card.emailId.empty()) {
      foot->addWidget(
          makeButton(qt(card.emailLabel), [this, id = card.emailId] { window_.emailReport(id); }));
    }
    frame->column()->addLayout(foot);
    cards_->column()->addWidget(frame);
  }
}

SessionFilesDialog::SessionFilesDialog(SessionFilesWindow& window, QWidget* parent)
    : QDialog(parent),
      window_(window),
      count_(makeLabel("", "caption")),
      files_(new QVBoxLayout),
      drive_(new QVBoxLayout) {
  auto* column = columnOf(this, SessionFilesWindow::title);
  column->addWidget(makeLabel(SessionFilesWindow::header));
  column->addWidget(makeLabel(SessionFilesWindow::hint, "caption"));
  column->addWidget(count_);
  column->addLayout(files_);
  auto* buttons = new FlowLayout;
  buttons->addWidget(makeButton("Local…", [this] { chooseLocal(); }));
  buttons->addWidget(makeButton("Drive…", [this] { window_.openDrivePicker(); }));
  buttons->addStretch(1);
  column->addLayout(buttons);
  auto* listed = new Column;
  listed->column()->addLayout(drive_);
  column->addWidget(listed, 1);
  connect(this, &QDialog::rejected, this, [this] { window_.close(); });
  window_.onChange = [this] { refresh(); };
  refresh();
}

SessionFilesDialog::~SessionFilesDialog() { window_.onChange = nullptr; }

void SessionFilesDialog::refresh() {
  count_->setText(qt(window_.countText()));
  clearLayout(files_);
  if (window_.files().empty()) {
    files_->addWidget(makeParagraph(SessionFilesWindow::noFiles, "caption"));
  }
  for (size_t i = 0; i < window_.files().size(); ++i) {
    const LAAttachedFile& file = window_.files()[i];
    auto* row = new QHBoxLayout;
    auto* used = new QCheckBox(qt(file.name).replace("&", "&&"));
    used->setChecked(file.useForContext);
    connect(used, &QCheckBox::toggled, this,
            [this, id = file.id](bool on) { window_.setUsed(id, on); });
    row->addWidget(used, 1);
    auto* remove = makeButton(
        "Remove", [this, i] { window_.remove(i); }, "quiet");
    remove->setAccessibleName(qt("Remove " + file.name));
    row->addWidget(remove);
    files_->addLayout(row);
  }
  clearLayout(drive_);
  if (!window_.isDrivePickerOpen()) return;
  drive_->addWidget(makeLabel(SessionFilesWindow::driveTitle, "section"));
  drive_->addWidget(makeParagraph(qt(window_.driveText()), "caption"));
  for (size_t i = 0; i < window_.driveRows().size(); ++i) {
    const auto& row = window_.driveRows()[i];
    drive_->addWidget(
        makeTile(qt(row.name + "  " + row.size), [this, i] { window_.attachDrive(i); }));
  }
}

void SessionFilesDialog::chooseLocal() {
  auto* dialog = new QFileDialog(this, SessionFilesWindow::localTitle);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::ExistingFiles);
  connect(dialog, &QFileDialog::filesSelected, this, [this](const QStringList& chosen) {
    std::vector<std::string> paths;
    for (const QString& path : chosen) paths.push_back(path.toStdString());
    window_.attachLocal(paths);
  });
  dialog->open();
}

PromptEditorDialog::PromptEditorDialog(LiveAssistPromptEditor& editor, QWidget* parent)
    : QDialog(parent),
      editor_(editor),
      mode_(makeChoices("Kind of conversation")),
      explanation_(makeParagraph("", "caption")),
      prompt_(new QPlainTextEdit) {
  auto* column = columnOf(this, LiveAssistPromptEditor::title);
  for (const auto mode : {LALiveAssistUseCase::salesCall, LALiveAssistUseCase::meeting}) {
    mode_->addItem(qt(displayName(mode)));
  }
  connect(mode_, &QComboBox::activated, this, [this](int index) {
    editor_.chooseMode(index == 0 ? LALiveAssistUseCase::salesCall : LALiveAssistUseCase::meeting);
  });
  column->addWidget(mode_);
  column->addWidget(explanation_);
  prompt_->setAccessibleName("Prompt");
  connect(prompt_, &QPlainTextEdit::textChanged, this,
          [this] { editor_.edit(prompt_->toPlainText().toStdString()); });
  column->addWidget(prompt_, 1);
  auto* buttons = new FlowLayout;
  buttons->addWidget(
      makeButton(LiveAssistPromptEditor::resetTitle, [this] { editor_.resetToDefault(); }));
  buttons->addStretch(1);
  buttons->addWidget(makeButton(LiveAssistPromptEditor::cancelTitle, [this] { editor_.cancel(); }));
  buttons->addWidget(makeButton(
      LiveAssistPromptEditor::saveTitle, [this] { editor_.save(); }, "primary"));
  column->addLayout(buttons);
  connect(this, &QDialog::rejected, this, [this] { editor_.cancel(); });
  editor_.onChange = [this] { refresh(); };
  refresh();
}

PromptEditorDialog::~PromptEditorDialog() { editor_.onChange = nullptr; }

void PromptEditorDialog::refresh() {
  if (!editor_.isOpen()) return accept();
  mode_->setCurrentIndex(editor_.mode() == LALiveAssistUseCase::salesCall ? 0 : 1);
  explanation_->setText(qt(editor_.explanation()));
  if (prompt_->toPlainText().toStdString() == editor_.text()) return;
  const QSignalBlocker quiet(prompt_);
  prompt_->setPlainText(qt(editor_.text()));
}

}  // namespace kestrin
