#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/dispatch/thread_core.h"

namespace kestrin::dispatch {

/// A queue of the pool, serial or concurrent. `sync` runs its job on the calling thread once its
/// turn has come, so that an idle queue costs two locks.
class WorkQueue final : public Queue, public std::enable_shared_from_this<WorkQueue> {
 public:
  WorkQueue(std::shared_ptr<ThreadCore> core, std::string label, QueueKind kind);

  const std::string& label() const override { return label_; }
  void post(Job job) override { enqueue(std::move(job), ordinary_); }
  void postAfter(Duration delay, Job job) override;
  void barrier(Job job) override { enqueue(std::move(job), Access::exclusive); }
  void sync(Job job) override { runSync(std::move(job), ordinary_); }
  void syncBarrier(Job job) override { runSync(std::move(job), Access::exclusive); }
  bool isCurrent() const override;

  /// For the pool: runs `entry`, whose turn it is, and what follows it.
  void runFrom(QueueEntry entry);

 private:
  void enqueue(Job job, Access access);
  void runSync(Job job, Access access);
  void waitForTurn(Access access);
  bool leave(Access access, QueueEntry* next);

  const std::shared_ptr<ThreadCore> core_;
  const std::string label_;
  const Access ordinary_;
  std::mutex mutex_;
  Turnstile<QueueEntry> turns_;
};

}  // namespace kestrin::dispatch
