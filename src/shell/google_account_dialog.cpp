#include "shell/google_account_dialog.h"

#include <QSignalBlocker>
#include <algorithm>

namespace kestrin {

GoogleAccountDialog::GoogleAccountDialog(GoogleAccountView& account, QWidget* parent)
    : QDialog(parent),
      account_(account),
      status_(makeLabel("")),
      busy_(makeBusyBar("Waiting for Google")),
      problem_(makeParagraph("", "error")) {
  setAttribute(Qt::WA_DeleteOnClose);
  setWindowTitle("Google account");
  setMinimumWidth(400);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(24, 24, 24, 24);
  column->setSpacing(10);
  column->addWidget(makeLabel("Google account", "heading"));
  column->addWidget(status_);
  column->addWidget(makeParagraph(
      "The backend reads calendar and mail for you; this computer never holds Google's keys.",
      "caption"));
  column->addLayout(makeBoxes());
  column->addWidget(busy_);
  column->addWidget(problem_);
  auto* buttons = new QHBoxLayout;
  unlink_ = makeButton("Disconnect", [this] { askToUnlink(); });
  retry_ = makeButton("Try again", [this] { account_.retry(); });
  apply_ = makeButton(
      "Apply", [this] { account_.applyScopes(); }, "primary");
  link_ = makeButton(
      "Connect", [this] { account_.link(); }, "primary");
  buttons->addWidget(unlink_);
  buttons->addStretch(1);
  for (QPushButton* button : {retry_, apply_, link_}) buttons->addWidget(button);
  for (QPushButton* button : {unlink_, retry_, apply_, link_}) button->setAutoDefault(false);
  column->addLayout(buttons);
  account_.onChange = [this] { refresh(); };
  refresh();
}

GoogleAccountDialog::~GoogleAccountDialog() { account_.onChange = nullptr; }

QLayout* GoogleAccountDialog::makeBoxes() {
  auto* column = new QVBoxLayout;
  column->setSpacing(6);
  for (const auto& choice : GoogleAccountView::choices()) {
    auto* box = new QCheckBox(choice.title);
    connect(box, &QCheckBox::toggled, this,
            [this, name = std::string(choice.name)](bool on) { account_.choose(name, on); });
    choices_[choice.name] = box;
    column->addWidget(box);
  }
  return column;
}

void GoogleAccountDialog::refresh() {
  const bool busy = account_.isBusy(), linked = account_.isLinked();
  status_->setText(qt(account_.statusLine()));
  for (const auto& [name, box] : choices_) {
    const QSignalBlocker quiet(box);
    box->setChecked(account_.isChosen(name));
    box->setEnabled(!busy);
  }
  busy_->setVisible(busy);
  problem_->setText(qt(account_.problem()));
  problem_->setVisible(!account_.problem().empty());
  retry_->setVisible(!account_.problem().empty());
  // An open window of the consent may be lost behind others: connecting begins anew.
  link_->setVisible(!linked);
  link_->setText(busy ? "Connect anew" : "Connect");
  link_->setAccessibleName(link_->text());
  apply_->setVisible(linked);
  apply_->setEnabled(!busy && account_.hasNewScopes());
  unlink_->setVisible(linked);
  unlink_->setEnabled(!busy);
  // A reason of several lines needs more room than there was.
  layout()->activate();
  resize(width(), std::max(height(), layout()->totalHeightForWidth(width())));
}

void GoogleAccountDialog::askToUnlink() {
  showAlert(this, "Disconnect the Google account?",
            "Calendar, mail and files of this account are no longer read.",
            {"Disconnect", "Cancel"}, [this](size_t pressed) {
              if (pressed == 0) account_.unlink();
            });
}

}  // namespace kestrin
