#include "shell/service_strip.h"

namespace kestrin {
namespace {

constexpr int askEveryMs = 20'000;

}  // namespace

ServiceStrip::ServiceStrip(ServiceWatch& watch)
    : watch_(watch), text_(makeParagraph("")), again_(makeButton("Try again", [this] { ask(); })) {
  setRole(this, "strip");
  setAccessibleName("Services");
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(16, 8, 16, 8);
  auto* words = new QVBoxLayout;
  words->setSpacing(2);
  words->addWidget(text_);
  words->addWidget(
      makeParagraph("What stands here may be old, and some of it cannot work.", "caption"));
  row->addLayout(words, 1);
  row->addWidget(again_);
  hide();
  timer_.setInterval(askEveryMs);
  connect(&timer_, &QTimer::timeout, this, [this] {
    // A hidden window asks nobody.
    if (parentWidget() != nullptr && parentWidget()->isVisible()) ask();
  });
  timer_.start();
  watch_.onChange = [this] { refresh(); };
}

ServiceStrip::~ServiceStrip() { watch_.onChange = nullptr; }

void ServiceStrip::showFor(const ServiceWatch::Services& needed) {
  if (needed == needed_ && asked_) return;
  needed_ = needed;
  wasDown_ = false;
  refresh();
  ask();
}

void ServiceStrip::ask() {
  if (needed_.empty() || (mayAsk && !mayAsk())) return;
  asked_ = true;
  watch_.check();
}

void ServiceStrip::refresh() {
  again_->setEnabled(!watch_.isChecking());
  setTitle(again_, watch_.isChecking() ? "Trying…" : "Try again");
  const bool down = watch_.isAnyDown(needed_);
  if (down) text_->setText(qt(watch_.text(needed_)));
  setVisible(down);
  if (wasDown_ && !down && onBack) onBack();
  wasDown_ = down;
}

}  // namespace kestrin
