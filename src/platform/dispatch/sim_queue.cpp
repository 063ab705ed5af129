#include "platform/dispatch/sim_queue.h"

namespace kestrin::dispatch {

SimQueue::SimQueue(std::shared_ptr<SimCore> core, std::string label, QueueKind kind)
    : core_(std::move(core)),
      label_(std::move(label)),
      ordinary_(kind == QueueKind::serial ? Access::exclusive : Access::shared),
      number_(core_->enlist(this)) {}

SimQueue::~SimQueue() {
  order::Unobserved section;
  core_->delist(number_);
  worker.reset();
}

void SimQueue::postAfter(Duration delay, Job job) {
  if (delay <= Duration(0)) return post(std::move(job));
  postSimTimer(core_, shared_from_this(), delay, std::move(job));
}

bool SimQueue::isCurrent() const {
  order::Unobserved section;
  // The test's own code stands for the main loop.
  const Frame* frame = core_->frame();
  return frame == nullptr ? core_->mainQueue == this : frame->queue == this;
}

void SimQueue::enqueue(Job job, Access access) {
  order::PostEdge posted;
  posted.set();
  order::Unobserved section;
  if (core_->ending()) return;
  // NOLINTNEXTLINE(performance-move-const-arg): under the thread sanitizer there is what to move
  SimEntry entry{std::move(job), access, nullptr, std::move(posted)};
  if (!turns_.tryEnter(access)) return turns_.enqueue(std::move(entry));
  core_->makeReady({nullptr, shared_from_this(), std::move(entry)});
}

void SimQueue::run(Job& job, Access access) {
  Frame frame{this, nullptr};
  {
    order::Unobserved section;
    frame.outer = core_->frame();
    core_->setFrame(&frame);
  }
  if (access == Access::exclusive) order::acquire(&afterShared_);
  order::acquire(&afterExclusive_);
  job();
  job = nullptr;
  order::release(access == Access::exclusive ? &afterExclusive_ : &afterShared_);
  order::Unobserved section;
  core_->setFrame(frame.outer);
  leave(access);
}

void SimQueue::leave(Access access) {
  turns_.leave(access);
  SimEntry entry;
  while (turns_.startNext(entry)) {
    if (entry.waiter != nullptr) {
      core_->wake(*entry.waiter);
    } else {
      core_->makeReady({nullptr, shared_from_this(), std::move(entry)});
    }
  }
}

void SimQueue::runSync(Job job, Access access) {
  {
    order::Unobserved section;
    refuseSyncOntoOwn(core_->frame(), *this);
    takeTurn(access);
  }
  run(job, access);
}

void SimQueue::takeTurn(Access access) {
  // At the end of the world nobody's turn comes any more.
  if (turns_.tryEnter(access) || core_->ending()) return;
  Wait wait{Wait::For::turn, label_, this};
  turns_.enqueue({nullptr, access, &wait, {}});
  core_->block(wait, std::nullopt);
}

void SimQueue::dropWaiting() { const auto dropped = turns_.takeWaiting(); }

}  // namespace kestrin::dispatch
