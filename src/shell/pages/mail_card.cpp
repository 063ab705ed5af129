#include "shell/pages/mail_card.h"

namespace kestrin {
namespace {

constexpr int markWidth = 14;

}  // namespace

MailCard::MailCard(GmailPanel& gmail, std::function<void()> connectAccount)
    : gmail_(gmail),
      connect_(makeButton("Connect…", std::move(connectAccount))),
      busy_(makeBusyBar("Reading mail")),
      prompt_(makeParagraph("", "caption")),
      problem_(makeParagraph("", "error")),
      summary_(makeParagraph("")),
      mails_(new QVBoxLayout) {
  column()->addLayout(makeHead());
  column()->addWidget(busy_);
  column()->addWidget(problem_);
  column()->addWidget(prompt_);
  connect_->setAccessibleName("Connect Gmail");
  column()->addWidget(connect_, 0, Qt::AlignLeft);
  column()->addWidget(summary_);
  mails_->setSpacing(10);
  column()->addLayout(mails_);
  gmail_.onChange = [this] { refresh(); };
  refresh();
}

MailCard::~MailCard() { gmail_.onChange = nullptr; }

QLayout* MailCard::makeHead() {
  auto* row = new QHBoxLayout;
  row->addWidget(makeLabel("MAIL", "section"), 1);
  summarize_ = makeButton(
      "Summarize", [this] { gmail_.summarizeEmailsClicked(); }, "quiet");
  summarize_->setAccessibleName("Summarize the mail");
  compose_ = makeButton(
      "New mail", [this] { gmail_.showComposeEmailPanel(); }, "quiet");
  refresh_ = makeButton(
      "Refresh", [this] { gmail_.checkGmailAccessAndLoadEmails(); }, "quiet");
  for (QPushButton* button : {summarize_, compose_, refresh_}) row->addWidget(button);
  return row;
}

void MailCard::refresh() {
  const bool mayRead = gmail_.hasGmailAccess();
  summarize_->setVisible(mayRead);
  summarize_->setEnabled(!gmail_.isSummarizing());
  compose_->setVisible(mayRead);
  setTitle(refresh_, gmail_.problem().empty() ? "Refresh" : "Try again");
  refresh_->setAccessibleName(gmail_.problem().empty() ? "Refresh the mail"
                                                       : "Read the mail again");
  refresh_->setEnabled(!gmail_.isLoading());
  busy_->setVisible(gmail_.isLoading() || gmail_.isSummarizing());
  problem_->setText(qt("Your mail could not be read: " + gmail_.problem()));
  problem_->setVisible(!gmail_.problem().empty());
  const bool empty =
      mayRead && gmail_.cachedEmails().empty() && gmail_.problem().empty() && !gmail_.isLoading();
  prompt_->setText(empty ? "Your inbox is empty." : qt(gmail_.prompt()));
  prompt_->setVisible(!prompt_->text().isEmpty());
  connect_->setVisible(!gmail_.prompt().empty());
  summary_->setText(qt(gmail_.summary()));
  summary_->setVisible(!gmail_.summary().empty());
  showMails();
  if (form_ == nullptr && gmail_.compose().isOpen())
    form_ = new ComposeDialog(gmail_.compose(), this);
  if (form_ != nullptr) form_->refresh();
}

void MailCard::showMails() {
  std::string wanted;
  for (const Email& email : gmail_.cachedEmails())
    wanted += email.id + "\n" + email.sender() + "\n" + email.shownSubject() + "\n" +
              email.snippet + "\n" + email.date + (email.isUnread ? "*" : "") + "\n";
  if (wanted == shown_) return;
  shown_ = std::move(wanted);
  clearLayout(mails_);
  for (const Email& email : gmail_.cachedEmails()) addMail(email);
}

void MailCard::addMail(const Email& email) {
  auto* row = new QHBoxLayout;
  auto* mark = makeLabel(email.isUnread ? "●" : "", "accent");
  mark->setFixedWidth(markWidth);
  mark->setAccessibleName(email.isUnread ? "Unread" : "Read");
  row->addWidget(mark, 0, Qt::AlignTop);
  auto* words = new QVBoxLayout;
  words->setSpacing(2);
  auto* head = new QHBoxLayout;
  head->addWidget(makeLabel(qt(email.sender()), "heading"), 1);
  head->addWidget(makeLabel(qt(email.date), "caption"));
  words->addLayout(head);
  words->addWidget(makeParagraph(qt(email.shownSubject())));
  if (!email.snippet.empty()) words->addWidget(makeParagraph(qt(email.snippet), "caption"));
  row->addLayout(words, 1);
  const std::string about = email.shownSubject() + ", from " + email.sender();
  auto* open = makeButton(
      "Open", [this, email] { gmail_.openEmail(email); }, "quiet");
  open->setAccessibleName(qt("Open " + about));
  auto* reply = makeButton("Reply", [this, email] { gmail_.showComposeEmailPanel(email); });
  reply->setAccessibleName(qt("Reply to " + about));
  row->addWidget(open, 0, Qt::AlignTop);
  row->addWidget(reply, 0, Qt::AlignTop);
  mails_->addLayout(row);
}

}  // namespace kestrin
