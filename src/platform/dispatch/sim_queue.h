#pragma once

#include <memory>
#include <string>

#include "platform/dispatch/sim_core.h"

namespace kestrin::dispatch {

/// A stack and the job on it.
struct Worker {
  explicit Worker(SimCore& core) : fiber([this, &core] { core.runJob(*this); }) {}
  Fiber fiber;
  std::shared_ptr<SimQueue> queue;
  SimEntry entry;
};

/// A queue of the simulation. `sync` runs its job on the caller's stack once its turn has come.
class SimQueue final : public Queue, public std::enable_shared_from_this<SimQueue> {
 public:
  SimQueue(std::shared_ptr<SimCore> core, std::string label, QueueKind kind);
  ~SimQueue() override;

  const std::string& label() const override { return label_; }
  void post(Job job) override { enqueue(std::move(job), ordinary_); }
  void postAfter(Duration delay, Job job) override;
  void barrier(Job job) override { enqueue(std::move(job), Access::exclusive); }
  void sync(Job job) override { runSync(std::move(job), ordinary_); }
  void syncBarrier(Job job) override { runSync(std::move(job), Access::exclusive); }
  bool isCurrent() const override;

  // For the core.
  bool serial() const { return ordinary_ == Access::exclusive; }
  /// Runs `job` as a job of this queue, whose turn it has.
  void run(Job& job, Access access);
  size_t waitingCount() const { return turns_.waitingCount(); }
  void dropWaiting();
  /// Under observation by the thread sanitizer a serial queue keeps its stack for itself: the next
  /// job on it would otherwise seem to share memory with another queue's.
  std::unique_ptr<Worker> worker;

 private:
  void enqueue(Job job, Access access);
  void runSync(Job job, Access access);
  void takeTurn(Access access);
  void leave(Access access);

  const std::shared_ptr<SimCore> core_;
  const std::string label_;
  const Access ordinary_;
  const uint64_t number_;
  Turnstile<SimEntry> turns_;
  char afterShared_ = 0;
  char afterExclusive_ = 0;
};

}  // namespace kestrin::dispatch
