#include "shell/compose_dialog.h"

#include <QSignalBlocker>

namespace kestrin {
namespace {

constexpr QSize dialogSize(560, 520);
constexpr int shownSuggestions = 4;

QString lineOf(const MailContact& contact) {
  return contact.name.empty() ? qt(contact.email) : qt(contact.name + "  " + contact.email);
}

}  // namespace

ComposeDialog::ComposeDialog(ComposeEmailPanel& panel, QWidget* parent)
    : QDialog(parent),
      panel_(panel),
      to_(new QLineEdit),
      suggestions_(new QListWidget),
      subject_(new QLineEdit),
      body_(new QPlainTextEdit),
      message_(makeParagraph("", "error")),
      sending_(makeBusyBar("Sending")) {
  resize(dialogSize);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(20, 20, 20, 20);
  column->setSpacing(8);
  to_->setPlaceholderText(ComposeEmailPanel::recipientPlaceholder);
  to_->setAccessibleName("To");
  suggestions_->setAccessibleName("Suggested recipients");
  subject_->setPlaceholderText("Subject");
  subject_->setAccessibleName("Subject");
  body_->setAccessibleName("Message");
  body_->setTabChangesFocus(true);
  column->addWidget(to_);
  column->addWidget(suggestions_);
  column->addWidget(subject_);
  column->addWidget(body_, 1);
  column->addWidget(message_);
  column->addWidget(sending_);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  auto* cancel = makeButton("Cancel", [this] { panel_.close(); });
  cancel->setAutoDefault(false);
  send_ = makeButton(
      "Send",
      [this] {
        panel_.subjectField = subject_->text().toStdString();
        panel_.bodyField = body_->toPlainText().toStdString();
        panel_.sendEmailClicked();
      },
      "primary");
  send_->setAutoDefault(false);
  buttons->addWidget(cancel);
  buttons->addWidget(send_);
  column->addLayout(buttons);
  connect(to_, &QLineEdit::textEdited, this,
          [this](const QString& text) { panel_.recipientTyped(text.toStdString()); });
  connect(subject_, &QLineEdit::textEdited, this,
          [this](const QString& text) { panel_.subjectField = text.toStdString(); });
  connect(body_, &QPlainTextEdit::textChanged, this,
          [this] { panel_.bodyField = body_->toPlainText().toStdString(); });
  connect(suggestions_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
    panel_.chooseSuggestion(size_t(suggestions_->row(item)));
    subject_->setFocus();
  });
  connect(suggestions_, &QListWidget::itemClicked, suggestions_, &QListWidget::itemActivated);
  connect(this, &QDialog::rejected, this, [this] { panel_.close(); });
}

void ComposeDialog::refresh() {
  if (!panel_.isOpen()) return hide();
  const bool opening = !isVisible();
  setWindowTitle(panel_.isReply() ? "Reply" : "New mail");
  if (to_->text() != qt(panel_.currentToField())) to_->setText(qt(panel_.currentToField()));
  if (subject_->text() != qt(panel_.subjectField)) subject_->setText(qt(panel_.subjectField));
  if (body_->toPlainText() != qt(panel_.bodyField)) {
    const QSignalBlocker quiet(body_);
    body_->setPlainText(qt(panel_.bodyField));
  }
  showSuggestions();
  const std::string& reason = panel_.reason();
  message_->setText(qt(panel_.message() + (reason.empty() ? "" : "\n" + reason)));
  message_->setVisible(!panel_.message().empty());
  sending_->setVisible(panel_.isSending());
  for (QWidget* each : {static_cast<QWidget*>(to_), static_cast<QWidget*>(subject_),
                        static_cast<QWidget*>(body_), static_cast<QWidget*>(send_)})
    each->setEnabled(!panel_.isSending());
  if (!opening) return;
  show();
  raise();
  if (panel_.isReply()) {
    body_->setFocus();
  } else {
    to_->setFocus();
  }
}

void ComposeDialog::showSuggestions() {
  suggestions_->clear();
  for (const MailContact& contact : panel_.contactSuggestions())
    suggestions_->addItem(lineOf(contact));
  suggestions_->setVisible(suggestions_->count() > 0);
  const int rows = std::min(suggestions_->count(), shownSuggestions);
  if (rows > 0)
    suggestions_->setFixedHeight(rows * suggestions_->sizeHintForRow(0) +
                                 2 * suggestions_->frameWidth() + 8);
}

}  // namespace kestrin
