#include <mutex>
#include <vector>

#include "platform/dispatch/dispatch.h"
#include "platform/dispatch/frame.h"

namespace kestrin {

struct Group::State {
  struct Notice {
    QueueRef queue;
    Job job;
  };

  Dispatch& dispatch;
  const std::string name;
  std::mutex mutex;
  int count = 0;
  std::vector<std::shared_ptr<Semaphore>> waiters;
  std::vector<Notice> notices;

  State(Dispatch& d, std::string n) : dispatch(d), name(std::move(n)) {}
};

Group::Group(Dispatch& dispatch, std::string name)
    : state_(std::make_shared<State>(dispatch, std::move(name))) {}

void Group::enter() {
  std::lock_guard lock(state_->mutex);
  ++state_->count;
}

void Group::leave() {
  // The last leave may let another thread destroy the group.
  auto state = state_;
  std::vector<std::shared_ptr<Semaphore>> waiters;
  std::vector<State::Notice> notices;
  {
    std::lock_guard lock(state->mutex);
    if (state->count == 0)
      dispatch::misuse("group '" + state->name + "' left more often than entered");
    if (--state->count > 0) return;
    waiters.swap(state->waiters);
    notices.swap(state->notices);
  }
  // Whoever waited may post to the same queue next, and comes after the notice.
  for (auto& notice : notices) notice.queue->post(std::move(notice.job));
  for (auto& waiter : waiters) waiter->signal();
}

bool Group::wait(Duration timeout) {
  std::shared_ptr<Semaphore> empty;
  {
    std::lock_guard lock(state_->mutex);
    if (state_->count == 0) return true;
    if (timeout == Duration(0)) return false;
    empty = state_->dispatch.makeSemaphore(0, state_->name);
    state_->waiters.push_back(empty);
  }
  if (empty->wait(timeout)) return true;
  std::lock_guard lock(state_->mutex);
  std::erase(state_->waiters, empty);
  return false;
}

void Group::notify(QueueRef queue, Job job) {
  {
    std::lock_guard lock(state_->mutex);
    if (state_->count > 0) {
      state_->notices.push_back({std::move(queue), std::move(job)});
      return;
    }
  }
  queue->post(std::move(job));
}

}  // namespace kestrin
