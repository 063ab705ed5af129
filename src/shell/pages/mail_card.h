#pragma once

#include <QProgressBar>
#include <functional>
#include <string>

#include "home/mail/gmail_panel.h"
#include "shell/compose_dialog.h"
#include "shell/design/controls.h"

namespace kestrin {

/// Draws GmailPanel on the home page: the newest mails, a summary, and the form to write.
class MailCard final : public Card {
 public:
  /// `connectAccount`: where mail is linked.
  MailCard(GmailPanel& gmail, std::function<void()> connectAccount);
  ~MailCard() override;

 private:
  void refresh();
  QLayout* makeHead();
  void showMails();
  void addMail(const Email& email);

  GmailPanel& gmail_;
  QPushButton* summarize_ = nullptr;
  QPushButton* compose_ = nullptr;
  QPushButton* refresh_ = nullptr;
  QPushButton* connect_;
  QProgressBar* busy_;
  QLabel* prompt_;
  QLabel* problem_;
  QLabel* summary_;
  QVBoxLayout* mails_;
  ComposeDialog* form_ = nullptr;
  std::string shown_;
};

}  // namespace kestrin
