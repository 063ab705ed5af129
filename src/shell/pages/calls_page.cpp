#include "shell/pages/calls_page.h"

#include <QPropertyAnimation>

namespace kestrin {
namespace {

constexpr int shakeMs = 300, shakeWidth = 8, contactHeight = 44;

QLayout* buttonRow(std::initializer_list<QWidget*> widgets) {
  auto* row = new FlowLayout;
  for (QWidget* each : widgets) row->addWidget(each);
  row->addStretch(1);
  return row;
}

}  // namespace

CallsPage::CallsPage(Calls& calls) : calls_(calls), view_(calls.view()) {
  auto* whole = new QVBoxLayout(this);
  whole->setContentsMargins(0, 0, 0, 0);
  auto* page = new Column;
  whole->addWidget(page);
  page->column()->addWidget(makeLabel("Calls", "title"));
  status_ = makeLabel("", "caption");
  page->column()->addWidget(status_);
  banner_ = makeBanner();
  page->column()->addWidget(banner_);
  inCall_ = makeInCall();
  page->column()->addWidget(inCall_);
  page->column()->addWidget(makeRecipient());
  auto* row = new FlowLayout;
  row->addWidget(makeLabel("Online now", "section"), 1);
  row->addWidget(makeButton(
      "Refresh", [this] { view_.refresh(); }, "quiet"));
  row->addWidget(makeButton(
      "Copy my device ID", [this] { view_.copyDeviceId(); }, "quiet"));
  page->column()->addLayout(row);
  people_ = new QVBoxLayout;
  people_->setSpacing(8);
  page->column()->addLayout(people_);
  history_ = new QVBoxLayout;
  history_->setSpacing(8);
  page->column()->addLayout(history_);
  view_.onChange = [this] {
    if (isVisible()) refresh();
  };
}

CallsPage::~CallsPage() { view_.onChange = nullptr; }

QWidget* CallsPage::makeRecipient() {
  auto* card = new Card;
  recipient_ = new QLineEdit;
  recipient_->setAccessibleName("Whom to call");
  recipient_->setPlaceholderText("A name, or a device ID");
  connect(recipient_, &QLineEdit::textEdited, this,
          [this](const QString& text) { view_.controlTextDidChange(text.toStdString()); });
  connect(recipient_, &QLineEdit::returnPressed, this, [this] { view_.audioCallClicked(); });
  card->column()->addWidget(recipient_);
  contacts_ = new QWidget;
  contactRows_ = new QVBoxLayout(contacts_);
  contactRows_->setContentsMargins(0, 0, 0, 0);
  contactRows_->setSpacing(0);
  card->column()->addWidget(contacts_);
  audio_ = makeButton(
      "Audio call", [this] { view_.audioCallClicked(); }, "primary");
  video_ = makeButton("Video call", [this] { view_.videoCallClicked(); });
  card->column()->addLayout(buttonRow({audio_, video_}));
  return card;
}

QWidget* CallsPage::makeBanner() {
  auto* card = new Card;
  bannerText_ = makeLabel("", "heading");
  card->column()->addWidget(bannerText_);
  card->column()->addLayout(
      buttonRow({makeButton(
                     "Answer", [this] { view_.answerCallClicked(); }, "primary"),
                 makeButton("Decline", [this] { view_.declineCallClicked(); })}));
  return card;
}

QWidget* CallsPage::makeInCall() {
  auto* card = new Card;
  auto* row = new FlowLayout;
  other_ = makeParagraph("", "heading");
  timer_ = makeLabel("", "figure");
  row->addWidget(other_, 1);
  row->addWidget(makeLabel("Live Assist", "badge"));
  row->addWidget(timer_);
  card->column()->addLayout(row);
  mute_ = makeButton("Mute", [this] { view_.toggleMute(); });
  camera_ = makeButton("Camera off", [this] { view_.toggleCamera(); });
  card->column()->addLayout(
      buttonRow({mute_, camera_, makeButton("Show call", [this] { view_.showPage(); }),
                 makeButton(
                     "End call", [this] { view_.endCallClicked(); }, "primary")}));
  return card;
}

void CallsPage::showEvent(QShowEvent* event) {
  Page::showEvent(event);
  view_.refresh();
}

void CallsPage::refresh() {
  status_->setText(qt(view_.status()));
  banner_->setVisible(view_.currentIncomingCall().has_value());
  bannerText_->setText(qt(view_.bannerText()));
  inCall_->setVisible(view_.isInCall());
  timer_->setText(qt(view_.timerLabel()));
  other_->setText(qt(calls_.service().currentCallerName().value_or("")));
  setTitle(mute_, view_.isMuted() ? "Unmute" : "Mute");
  setTitle(camera_, view_.isCameraOff() ? "Camera on" : "Camera off");
  camera_->setVisible(!view_.isAudioOnly());
  audio_->setEnabled(view_.canCall());
  video_->setEnabled(view_.canCall());
  if (recipient_->text().toStdString() != view_.recipient())
    recipient_->setText(qt(view_.recipient()));
  if (view_.shakes() != shakes_) {
    shakes_ = view_.shakes();
    shake();
  }
  showContacts();
  showPeople();
  showHistory();
}

/// To and fro: nothing was entered.
void CallsPage::shake() {
  auto* motion = new QPropertyAnimation(recipient_, "pos", this);
  const QPoint rest = recipient_->pos();
  motion->setDuration(shakeMs);
  for (int i = 1; i < 6; ++i)
    motion->setKeyValueAt(i / 6.0, rest + QPoint(i % 2 == 0 ? shakeWidth : -shakeWidth, 0));
  motion->setEndValue(rest);
  motion->start(QAbstractAnimation::DeleteWhenStopped);
  recipient_->setFocus();
}

void CallsPage::showContacts() {
  std::vector<std::string> wanted;
  for (const CallContact& each : view_.contacts().shown())
    wanted.push_back(each.name + '\n' + each.email);
  contacts_->setVisible(!wanted.empty());
  if (wanted == shownContacts_) return;
  shownContacts_ = wanted;
  clearLayout(contactRows_);
  for (size_t i = 0; i < view_.contacts().shown().size(); ++i) {
    const CallContact& each = view_.contacts().shown()[i];
    auto* button = makeButton(
        qt(each.initial() + "   " + each.shownName() +
           (each.email.empty() ? "" : "   " + each.email)),
        [this, i] { view_.chooseContact(i); }, "quiet");
    button->setMinimumHeight(contactHeight);
    contactRows_->addWidget(button);
  }
}

void CallsPage::showPeople() {
  std::vector<std::string> wanted{view_.canCall() ? "can" : ""};
  for (const OnlineUser& user : view_.onlineUsers())
    wanted.push_back(user.deviceId + '\n' + user.displayName());
  if (wanted == shownPeople_) return;
  shownPeople_ = wanted;
  clearLayout(people_);
  if (view_.onlineUsers().empty())
    people_->addWidget(
        makeEmptyState({"Nobody else is online",
                        "Others show here while their Kestrin runs with the same backend"}));
  for (size_t i = 0; i < view_.onlineUsers().size(); ++i) {
    const std::string name = view_.onlineUsers()[i].displayName();
    auto* card = new Card;
    auto* row = new FlowLayout;
    row->addWidget(makeLabel("🟢", ""));
    row->addWidget(makeParagraph(qt(name), "heading"), 1);
    auto* audio = makeButton("Audio", [this, i] { view_.quickAudioCall(i); });
    auto* video = makeButton("Video", [this, i] { view_.quickVideoCall(i); });
    audio->setAccessibleName(qt("Audio call to " + name));
    video->setAccessibleName(qt("Video call to " + name));
    for (auto* each : {audio, video}) {
      each->setEnabled(view_.canCall());
      row->addWidget(each);
    }
    card->column()->addLayout(row);
    people_->addWidget(card);
  }
}

QWidget* CallsPage::callCard(const CallRecord& call) {
  auto* card = new Card;
  auto* row = new QHBoxLayout;
  const bool outgoing = call.direction == "outgoing";
  row->addWidget(makeParagraph(qt((outgoing ? "↗ " : "↙ ") + call.displayName()), "heading"), 1);
  row->addWidget(makeLabel(qt(call.callStatusBadge()), "badge"));
  card->column()->addLayout(row);
  const std::string duration = call.formattedDuration();
  card->column()->addWidget(
      makeLabel(qt(call.formattedDate() + (duration.empty() ? "" : " · " + duration)), "caption"));
  if (call.summary) card->column()->addWidget(makeParagraph(qt(*call.summary)));
  const bool open = view_.isExpanded(call.id);
  std::string moods;
  for (const auto& [who, mood, emotion] :
       {std::tuple{"You", call.userMood, call.userEmotion},
        std::tuple{"Other", call.otherMood, call.otherEmotion}}) {
    if (mood)
      moods += std::string(moods.empty() ? "" : "   ") + who + ": " +
               emojiForEmotion(emotion.value_or("")) + " " + *mood;
  }
  if (!moods.empty()) card->column()->addWidget(makeParagraph(qt(moods), "caption"));
  if (open && call.transcript) card->column()->addWidget(makeParagraph(qt(*call.transcript)));
  auto* back = makeButton(
      "Call back", [this, id = call.id] { view_.callBackClicked(id); }, "quiet");
  back->setAccessibleName(qt("Call back " + call.displayName()));
  auto* buttons = new FlowLayout;
  buttons->addWidget(back);
  if (call.transcript) {
    buttons->addWidget(makeButton(
        open ? "Hide transcript" : "Show transcript",
        [this, id = call.id] { view_.toggleCallExpansion(id); }, "quiet"));
  }
  buttons->addStretch(1);
  card->column()->addLayout(buttons);
  return card;
}

void CallsPage::showHistory() {
  const auto groups = view_.historyGroups();
  std::vector<std::string> wanted{std::to_string(mostCalls_)};
  for (const CallGroup& group : groups) {
    wanted.push_back(group.title);
    for (const CallRecord& call : group.calls)
      wanted.push_back(call.id + call.status + call.summary.value_or("") +
                       call.formattedDuration() + (view_.isExpanded(call.id) ? "+" : ""));
  }
  if (wanted == shownHistory_) return;
  shownHistory_ = wanted;
  clearLayout(history_);
  if (groups.empty())
    history_->addWidget(makeEmptyState({CallsView::emptyTitle, CallsView::emptyText}));
  size_t left = mostCalls_;
  for (const CallGroup& group : groups) {
    if (left == 0) break;
    history_->addWidget(makeLabel(qt(group.title), "section"));
    for (size_t i = 0; i < group.calls.size() && left > 0; ++i, --left)
      history_->addWidget(callCard(group.calls[i]));
  }
  if (view_.callHistory().size() <= mostCalls_) return;
  const auto showMore = [this] {
    mostCalls_ += callsAtOnce;
    showHistory();
  };
  history_->addWidget(makeButton("Show more", showMore), 0, Qt::AlignHCenter);
}

}  // namespace kestrin
