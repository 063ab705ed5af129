#pragma once

#include "platform/dispatch/sim_core.h"

namespace kestrin::dispatch {

/// A job that is posted at a time, once or again and again; kept by its alarm and its handle.
class SimTimer final : public std::enable_shared_from_this<SimTimer> {
 public:
  /// `interval` zero fires once.
  SimTimer(std::shared_ptr<SimCore> core, QueueRef queue, Duration interval, Job job)
      : core_(std::move(core)),
        queue_(std::move(queue)),
        interval_(interval),
        job_(std::move(job)) {}

  void start(Duration delay);
  void cancel();
  /// For the core: the time has come.
  void ring();
  bool repeats() const { return interval_ > Duration(0); }
  const Queue& queue() const { return *queue_; }

 private:
  void fire();

  const std::shared_ptr<SimCore> core_;
  const QueueRef queue_;
  const Duration interval_;
  const Job job_;
  SimCore::AlarmKey key_;
  bool cancelled_ = false;
  bool posted_ = false;
};

}  // namespace kestrin::dispatch
