#include "cli/audio_clock.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace kestrin::cli {
namespace {

/// From a block of sound to the request for its words it is three hops, and as many back.
constexpr int rounds = 4;

}  // namespace

class AudioClock::RecordedClock final : public Clock {
 public:
  explicit RecordedClock(Clock& real) : real_(real), start_(real.wallNow()) {}

  Date wallNow() const override {
    return start_ + std::chrono::duration_cast<Date::duration>(elapsed());
  }
  SteadyTime steadyNow() const override { return {elapsed()}; }
  void sleep(Duration duration, std::string_view why) override { real_.sleep(duration, why); }

  Duration elapsed() const { return Duration(elapsed_.load()); }
  void setElapsed(Duration time) { elapsed_ = time.count(); }

 private:
  Clock& real_;
  const Date start_;
  std::atomic<Duration::rep> elapsed_{0};
};

struct AudioClock::Alarm {
  QueueRef queue;
  Duration due{};
  Duration interval{};  ///< zero: once
  Job job;
  std::atomic<bool> cancelled{false};
};

class AudioClock::Handle final : public Timer {
 public:
  explicit Handle(std::shared_ptr<Alarm> alarm) : alarm_(std::move(alarm)) {}
  ~Handle() override { alarm_->cancelled = true; }
  void cancel() override { alarm_->cancelled = true; }

 private:
  std::shared_ptr<Alarm> alarm_;
};

AudioClock::AudioClock(Dispatch& engine)
    : engine_(engine), clock_(std::make_unique<RecordedClock>(engine.clock())) {}

AudioClock::~AudioClock() = default;

Clock& AudioClock::clock() { return *clock_; }

QueueRef AudioClock::makeQueue(std::string label, QueueKind kind) {
  QueueRef queue = engine_.makeQueue(std::move(label), kind);
  const std::lock_guard lock(mutex_);
  queues_.push_back(queue);
  return queue;
}

TimerHandle AudioClock::after(const QueueRef& queue, Duration delay, Job job) {
  return add(queue, delay, {}, std::move(job));
}

TimerHandle AudioClock::every(const QueueRef& queue, Duration interval, Job job) {
  return add(queue, interval, interval, std::move(job));
}

TimerHandle AudioClock::add(const QueueRef& queue, Duration first, Duration interval, Job job) {
  auto alarm = std::make_shared<Alarm>();
  alarm->queue = queue;
  alarm->due = clock_->elapsed() + first;
  alarm->interval = interval;
  alarm->job = std::move(job);
  const std::lock_guard lock(mutex_);
  alarms_.push_back(alarm);
  return std::make_unique<Handle>(alarm);
}

std::shared_ptr<AudioClock::Alarm> AudioClock::nextDue(Duration until) {
  const std::lock_guard lock(mutex_);
  std::erase_if(alarms_, [](const auto& alarm) { return alarm->cancelled.load(); });
  const auto first = std::min_element(alarms_.begin(), alarms_.end(),
                                      [](const auto& a, const auto& b) { return a->due < b->due; });
  if (first == alarms_.end() || (*first)->due > until) return nullptr;
  const std::shared_ptr<Alarm> alarm = *first;
  clock_->setElapsed(std::max(clock_->elapsed(), alarm->due));
  if (alarm->interval.count() > 0) {
    alarm->due += alarm->interval;
  } else {
    alarms_.erase(first);
  }
  return alarm;
}

void AudioClock::advance(Duration time) {
  const Duration until = clock_->elapsed() + time;
  while (const auto alarm = nextDue(until)) {
    alarm->queue->post([alarm] {
      if (!alarm->cancelled) alarm->job();
    });
  }
  clock_->setElapsed(until);
}

void AudioClock::settle() {
  for (int round = 0; round < rounds; ++round) {
    std::vector<QueueRef> queues;
    {
      const std::lock_guard lock(mutex_);
      std::erase_if(queues_, [](const auto& queue) { return queue.expired(); });
      for (const auto& queue : queues_) queues.push_back(queue.lock());
    }
    for (const QueueRef& queue : queues) {
      if (queue) queue->syncBarrier([] {});
    }
    engine_.mainQueue()->sync([] {});
  }
}

}  // namespace kestrin::cli
