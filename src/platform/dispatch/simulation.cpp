#include "platform/dispatch/simulation.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "platform/dispatch/fiber.h"
#include "platform/dispatch/frame.h"
#include "platform/dispatch/turnstile.h"

namespace kestrin {
namespace {

using dispatch::Access;
using dispatch::Fiber;
using dispatch::Frame;

// 2026-03-02T09:00:00Z
constexpr auto wallStart = Date(std::chrono::seconds(1'772'442'000));

class World;

struct Entry {
  Job job;
  Access access = Access::exclusive;
  const Frame* outer = nullptr;  ///< of the code that waits for this job
};

class SimulatedQueue final : public Queue, public std::enable_shared_from_this<SimulatedQueue> {
 public:
  SimulatedQueue(World& world, std::string label, QueueKind kind, bool isMain)
      : world_(world), label_(std::move(label)), kind_(kind), isMain(isMain) {}

  const std::string& label() const override { return label_; }
  void post(Job job) override { add({std::move(job), usual(), nullptr}); }
  void postAfter(Duration delay, Job job) override;
  void barrier(Job job) override { add({std::move(job), Access::exclusive, nullptr}); }
  void sync(Job job) override { wait(std::move(job), usual()); }
  void syncBarrier(Job job) override { wait(std::move(job), Access::exclusive); }
  bool isCurrent() const override;

  bool canStart() const;
  dispatch::Turnstile<Entry> turns;

 private:
  Access usual() const { return kind_ == QueueKind::serial ? Access::exclusive : Access::shared; }
  void add(Entry entry);
  void wait(Job job, Access access);

  World& world_;
  const std::string label_;
  const QueueKind kind_;

 public:
  const bool isMain;
};
using SimulatedQueueRef = std::shared_ptr<SimulatedQueue>;

/// A fiber that waits for `ready` or a deadline.
struct Waiter {
  Fiber* fiber = nullptr;
  const Frame* frame = nullptr;
  std::function<bool()> ready;
  std::optional<Duration> deadline;
  std::string what;
};

struct Alarm {
  std::function<void()> fire;
};

class World final : public Simulation {
 public:
  explicit World(uint64_t seed) : seed_(seed), state_(seed) {
    main_ = make("mainQueue", QueueKind::serial, true);
    global_ = make("globalQueue", QueueKind::concurrent, false);
  }
  ~World() override;

  Clock& clock() override { return clock_; }
  QueueRef mainQueue() override { return main_; }
  QueueRef globalQueue() override { return global_; }
  QueueRef makeQueue(std::string label, QueueKind kind) override {
    return make(std::move(label), kind, false);
  }
  TimerHandle after(const QueueRef& queue, Duration delay, Job job) override;
  TimerHandle every(const QueueRef& queue, Duration interval, Job job) override;
  std::shared_ptr<Semaphore> makeSemaphore(int value, std::string name) override;

  void runFor(Duration duration) override;
  void jump(Duration duration) override;
  void runReady() override;
  bool runUntil(const std::function<bool()>& done, Duration limit) override;
  Duration elapsed() const override { return now_; }
  uint64_t seed() const override { return seed_; }
  std::vector<std::string> stuck() const override;
  std::string dump() const override;
  uint64_t random(uint64_t bound) override { return bound == 0 ? 0 : next() % bound; }

  /// Blocks the running code until `ready` or the deadline; true when `ready`.
  bool block(std::function<bool()> ready, std::optional<Duration> deadline, std::string what);
  void at(Duration when, std::function<void()> fire) {
    alarms_.emplace(std::max(when, now_), Alarm{std::move(fire)});
  }
  void noteWork(const SimulatedQueueRef& queue);
  const Frame* frame() const { return frame_; }
  bool ending() const { return ending_; }

 private:
  class VirtualClock final : public Clock {
   public:
    explicit VirtualClock(World& world) : world_(world) {}
    Date wallNow() const override {
      return wallStart + std::chrono::duration_cast<Date::duration>(world_.now_);
    }
    SteadyTime steadyNow() const override { return {world_.now_}; }
    void sleep(Duration duration, std::string_view why) override {
      world_.block([] { return false; }, world_.now_ + std::max(duration, Duration(0)),
                   std::string(why));
    }

   private:
    World& world_;
  };

  SimulatedQueueRef make(std::string label, QueueKind kind, bool isMain) {
    return std::make_shared<SimulatedQueue>(*this, std::move(label), kind, isMain);
  }
  /// Splitmix64: small, and the same everywhere.
  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
  }
  bool step();
  std::optional<Duration> nextDeadline() const;
  void startHead(const SimulatedQueueRef& queue);
  void goOn(size_t waiter);
  bool isReady(const Waiter& waiter) const {
    return (waiter.deadline && *waiter.deadline <= now_) || waiter.ready();
  }

  const uint64_t seed_;
  uint64_t state_;
  Duration now_{0};
  VirtualClock clock_{*this};
  SimulatedQueueRef main_;
  SimulatedQueueRef global_;
  /// Queues with waiting entries, in the order in which they got work.
  std::vector<SimulatedQueueRef> busy_;
  std::vector<Waiter> waiters_;
  std::multimap<Duration, Alarm> alarms_;
  std::vector<std::unique_ptr<Fiber>> fibers_;
  std::vector<Fiber*> idle_;
  Fiber* running_ = nullptr;
  const Frame* frame_ = nullptr;
  bool ending_ = false;
};

void SimulatedQueue::add(Entry entry) {
  if (world_.ending()) return;
  turns.enqueue(std::move(entry));
  world_.noteWork(shared_from_this());
}

void SimulatedQueue::postAfter(Duration delay, Job job) {
  world_.at(world_.elapsed() + delay,
            [self = shared_from_this(), job = std::move(job)] { self->post(job); });
}

void SimulatedQueue::wait(Job job, Access access) {
  dispatch::refuseSyncOntoOwn(world_.frame(), *this);
  if (world_.ending()) return;
  auto done = std::make_shared<bool>(false);
  add({[job = std::move(job), done] {
         job();
         *done = true;
       },
       access, world_.frame()});
  world_.block([done] { return *done; }, std::nullopt, "sync onto " + label_);
}

bool SimulatedQueue::isCurrent() const {
  return world_.frame() != nullptr && world_.frame()->queue == this;
}

bool SimulatedQueue::canStart() const { return turns.canStartNext(); }

class SimulatedSemaphore final : public Semaphore {
 public:
  SimulatedSemaphore(World& world, int value, std::string name)
      : world_(world), count_(std::make_shared<int>(value)), name_(std::move(name)) {}
  void signal() override { ++*count_; }
  bool wait(Duration timeout) override {
    std::optional<Duration> deadline;
    if (timeout >= Duration(0)) deadline = world_.elapsed() + timeout;
    const bool signalled = world_.block([count = count_] { return *count > 0; }, deadline, name_);
    if (signalled) --*count_;
    return signalled;
  }

 private:
  World& world_;
  std::shared_ptr<int> count_;
  const std::string name_;
};

/// One timer, kept by its handle and by its pending alarm.
struct TimerState {
  bool cancelled = false;
  QueueRef queue;
  Duration interval{0};
  bool repeats = false;
  Job job;
};

class SimulatedTimer final : public Timer {
 public:
  explicit SimulatedTimer(std::shared_ptr<TimerState> state) : state_(std::move(state)) {}
  ~SimulatedTimer() override { cancel(); }
  void cancel() override {
    state_->cancelled = true;
    // What the job holds may be what owns this timer; a running job keeps its own copy.
    state_->job = nullptr;
  }

 private:
  std::shared_ptr<TimerState> state_;
};

void armTimer(World& world, Duration due, const std::shared_ptr<TimerState>& state) {
  world.at(due, [&world, due, state] {
    if (state->cancelled) return;
    state->queue->post([state] {
      if (state->cancelled) return;
      const Job job = state->job;
      job();
    });
    if (!state->repeats) return;
    // A firing that comes late is not made up for.
    const Duration next = due + state->interval;
    armTimer(world, next > world.elapsed() ? next : world.elapsed() + state->interval, state);
  });
}

World::~World() {
  ending_ = true;
  alarms_.clear();
  // Jobs that never ran are dropped; what they hold may post again, to no effect.
  while (!busy_.empty()) {
    const auto queue = std::move(busy_.back());
    busy_.pop_back();
    queue->turns = {};
  }
  waiters_.clear();
}

TimerHandle World::after(const QueueRef& queue, Duration delay, Job job) {
  auto state = std::make_shared<TimerState>(TimerState{false, queue, delay, false, std::move(job)});
  armTimer(*this, now_ + delay, state);
  return std::make_unique<SimulatedTimer>(std::move(state));
}

TimerHandle World::every(const QueueRef& queue, Duration interval, Job job) {
  auto state =
      std::make_shared<TimerState>(TimerState{false, queue, interval, true, std::move(job)});
  armTimer(*this, now_ + interval, state);
  return std::make_unique<SimulatedTimer>(std::move(state));
}

std::shared_ptr<Semaphore> World::makeSemaphore(int value, std::string name) {
  return std::make_shared<SimulatedSemaphore>(*this, value, std::move(name));
}

void World::noteWork(const SimulatedQueueRef& queue) {
  if (std::find(busy_.begin(), busy_.end(), queue) == busy_.end()) busy_.push_back(queue);
}

bool World::block(std::function<bool()> ready, std::optional<Duration> deadline, std::string what) {
  if (ending_) return ready();
  for (const Frame* held = frame_; held != nullptr; held = held->outer) {
    const auto* queue = static_cast<const SimulatedQueue*>(held->queue);
    if (queue->isMain && what.rfind("sync onto ", 0) != 0)
      dispatch::misuse(dispatch::waitOnMainText("waits for", what));
  }
  if (running_ == nullptr) {
    // The test itself waits: the world goes on round it.
    while (!ready()) {
      if (deadline && *deadline <= now_) return false;
      if (step()) continue;
      auto next = nextDeadline();
      if (deadline && (!next || *deadline < *next)) next = deadline;
      if (!next)
        dispatch::misuse("the test waits for '" + what + "', which nothing can bring about\n" +
                         dump());
      now_ = std::max(now_, *next);
    }
    return true;
  }
  Fiber* self = running_;
  const Frame* frame = frame_;
  bool signalled = false;
  waiters_.push_back({self, frame, ready, deadline, std::move(what)});
  self->handOver();
  signalled = ready();
  return signalled;
}

std::optional<Duration> World::nextDeadline() const {
  std::optional<Duration> out;
  if (!alarms_.empty()) out = alarms_.begin()->first;
  for (const Waiter& waiter : waiters_) {
    if (waiter.deadline && (!out || *waiter.deadline < *out)) out = waiter.deadline;
  }
  return out;
}

bool World::step() {
  // Equal timers fire in the order in which they were set; what they post is then chosen from.
  while (!alarms_.empty() && alarms_.begin()->first <= now_) {
    auto alarm = std::move(alarms_.begin()->second);
    alarms_.erase(alarms_.begin());
    alarm.fire();
  }
  std::erase_if(busy_, [](const auto& queue) { return queue->turns.waiting().empty(); });
  std::vector<size_t> candidates;
  for (size_t i = 0; i < busy_.size(); ++i) {
    if (busy_[i]->canStart()) candidates.push_back(i);
  }
  const size_t heads = candidates.size();
  for (size_t i = 0; i < waiters_.size(); ++i) {
    if (isReady(waiters_[i])) candidates.push_back(i);
  }
  if (candidates.empty()) return false;
  const size_t choice = candidates.size() == 1 ? 0 : next() % candidates.size();
  if (choice < heads) {
    startHead(busy_[candidates[choice]]);
  } else {
    goOn(candidates[choice]);
  }
  return true;
}

void World::startHead(const SimulatedQueueRef& chosen) {
  const SimulatedQueueRef queue = chosen;
  auto entry = std::make_shared<Entry>();
  if (!queue->turns.startNext(*entry)) return;
  if (idle_.empty()) {
    fibers_.push_back(std::make_unique<Fiber>());
    idle_.push_back(fibers_.back().get());
  }
  Fiber* fiber = idle_.back();
  idle_.pop_back();
  Fiber* before = std::exchange(running_, fiber);
  const Frame* frameBefore = frame_;
  fiber->start([this, queue, entry] {
    const Frame frame{queue.get(), entry->outer};
    frame_ = &frame;
    entry->job();
    entry->job = nullptr;
    queue->turns.leave(entry->access);
  });
  running_ = before;
  frame_ = frameBefore;
  if (fiber->idle()) idle_.push_back(fiber);
}

void World::goOn(size_t index) {
  const Waiter waiter = std::move(waiters_[index]);
  waiters_.erase(waiters_.begin() + static_cast<ptrdiff_t>(index));
  Fiber* before = std::exchange(running_, waiter.fiber);
  const Frame* frameBefore = std::exchange(frame_, waiter.frame);
  waiter.fiber->resume();
  running_ = before;
  frame_ = frameBefore;
  if (waiter.fiber->idle()) idle_.push_back(waiter.fiber);
}

void World::runReady() {
  while (step()) {
  }
}

void World::runFor(Duration duration) {
  const Duration end = now_ + duration;
  for (;;) {
    runReady();
    const auto next = nextDeadline();
    if (!next || *next > end) break;
    now_ = std::max(now_, *next);
  }
  now_ = end;
}

void World::jump(Duration duration) {
  now_ += duration;
  runReady();
}

bool World::runUntil(const std::function<bool()>& done, Duration limit) {
  const Duration end = now_ + limit;
  while (!done()) {
    if (step()) continue;
    const auto next = nextDeadline();
    if (!next) return false;
    if (*next > end) {
      now_ = end;
      return false;
    }
    now_ = std::max(now_, *next);
  }
  return true;
}

std::vector<std::string> World::stuck() const {
  std::vector<std::string> out;
  for (const Waiter& waiter : waiters_) {
    if (!waiter.deadline && !waiter.ready()) {
      out.push_back(dispatch::nameOf(waiter.frame) + " waits for '" + waiter.what + "'");
    }
  }
  return out;
}

std::string World::dump() const {
  std::string out = "seed " + std::to_string(seed_) + ", at " +
                    std::to_string(now_.count() / 1'000'000) + " ms\n";
  for (const auto& queue : busy_) {
    out += "  " + queue->label() + ": " + std::to_string(queue->turns.waiting().size()) +
           " jobs wait\n";
  }
  for (const Waiter& waiter : waiters_) {
    out += "  " + dispatch::nameOf(waiter.frame) + " waits for '" + waiter.what + "'\n";
  }
  return out + "  " + std::to_string(alarms_.size()) + " timers\n";
}

uint64_t chosenSeed(uint64_t seed) {
  if (seed != 0) return seed;
  const char* text = std::getenv("KESTRIN_SEED");
  const uint64_t chosen = text != nullptr ? std::strtoull(text, nullptr, 10) : 0;
  return chosen != 0 ? chosen : 1;
}

}  // namespace

std::unique_ptr<Simulation> Simulation::make(uint64_t seed) {
  return std::make_unique<World>(chosenSeed(seed));
}

}  // namespace kestrin
