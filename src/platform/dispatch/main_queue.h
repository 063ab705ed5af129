#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "platform/dispatch/thread_core.h"
#include "platform/dispatch/threads.h"

namespace kestrin::dispatch {

/// The main loop's queue: a list of jobs and a descriptor that is readable while there are any.
class MainQueue final : public Queue,
                        public MainLoop,
                        public std::enable_shared_from_this<MainQueue> {
 public:
  MainQueue();
  ~MainQueue() override;
  /// Before first use.
  void attach(std::shared_ptr<ThreadCore> core) { core_ = std::move(core); }

  const std::string& label() const override { return label_; }
  void post(Job job) override { enqueue(std::move(job), nullptr); }
  void postAfter(Duration delay, Job job) override;
  void barrier(Job job) override { post(std::move(job)); }
  void sync(Job job) override;
  void syncBarrier(Job job) override { sync(std::move(job)); }
  bool isCurrent() const override;

  int wakeDescriptor() const override { return descriptor_; }
  void drain() override;
  int run() override;
  void quit(int code) override;

  /// Makes the descriptor readable. Thread-safe.
  void wake();
  /// Blocks until `wake` or a post.
  void waitForWake();

 private:
  struct SyncCall;
  struct Entry {
    Job job;
    SyncCall* call;
  };

  void enqueue(Job job, SyncCall* call);
  void runOne(Entry entry);
  void signalIfWork();

  std::shared_ptr<ThreadCore> core_;
  const std::string label_ = "mainQueue";
  const int descriptor_;
  std::mutex mutex_;
  std::deque<Entry> entries_;
  bool signalled_ = false;
  std::atomic<bool> quitting_{false};
  std::atomic<int> code_{0};
};

}  // namespace kestrin::dispatch
