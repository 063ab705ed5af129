#include "shell/pages/active_call_card.h"

namespace kestrin {
namespace {

constexpr int tickMs = 1000;

}  // namespace

ActiveCallCard::ActiveCallCard(Calls& calls)
    : calls_(calls),
      timer_(makeLabel("", "figure")),
      status_(makeParagraph("", "caption")),
      lines_(new QVBoxLayout) {
  setAccessibleName("Active Call");
  auto* head = new FlowLayout;
  head->addWidget(makeLabel("Active Call", "heading"), 1);
  head->addWidget(timer_);
  column()->addLayout(head);
  column()->addWidget(status_);
  lines_->setSpacing(2);
  column()->addLayout(lines_);
  // A call that is over has no view any more.
  const auto call = [this](void (EmbeddedVideoCallView::*what)()) {
    return [this, what] {
      if (auto* embedded = calls_.embedded()) (embedded->*what)();
    };
  };
  auto* row = new FlowLayout;
  mute_ = makeButton("Mute", call(&EmbeddedVideoCallView::toggleMute));
  camera_ = makeButton("Camera off", call(&EmbeddedVideoCallView::toggleCamera));
  for (QPushButton* each : {mute_, camera_}) row->addWidget(each);
  row->addWidget(makeButton("Show call", call(&EmbeddedVideoCallView::expand)));
  row->addWidget(makeButton("End call", call(&EmbeddedVideoCallView::endCallClicked), "primary"));
  column()->addLayout(row);
  tick_.setInterval(tickMs);
  connect(&tick_, &QTimer::timeout, this, [this] { refresh(); });
  calls_.onChange = [this] { refresh(); };
  refresh();
}

ActiveCallCard::~ActiveCallCard() { calls_.onChange = nullptr; }

void ActiveCallCard::refresh() {
  const auto* embedded = calls_.embedded();
  setVisible(embedded != nullptr);
  if (embedded == nullptr) return tick_.stop();
  if (!tick_.isActive()) tick_.start();
  timer_->setText(qt(embedded->timerLabel()));
  status_->setText(qt(embedded->status()));
  setTitle(mute_, embedded->isMuted() ? "Unmute" : "Mute");
  setTitle(camera_, embedded->isCameraOff() ? "Camera on" : "Camera off");
  if (shown_ == calls_.activeCallLines()) return;
  shown_ = calls_.activeCallLines();
  clearLayout(lines_);
  for (const std::string& line : shown_) lines_->addWidget(makeParagraph(qt(line)));
}

}  // namespace kestrin
