#include "platform/dispatch/sim_core.h"

#include <algorithm>
#include <thread>

#include "platform/dispatch/sim_queue.h"
#include "platform/dispatch/sim_timer.h"

namespace kestrin::dispatch {
namespace {

// A world in which so much happens without time passing goes round in circles.
constexpr uint64_t maxStepsAtOneTime = 20'000'000;

}  // namespace

uint64_t SeededNumbers::below(uint64_t bound) {
  uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  z ^= z >> 31;
  return bound > 1 ? z % bound : 0;
}

SimCore::SimCore(uint64_t seed) : seed_(seed), choices_(seed) {
  // Reference counts are plain numbers until a process has started its first thread; the sanitizer
  // would take them for races.
  if (order::observed) std::thread([] {}).join();
}

uint64_t SimCore::enlist(SimQueue* queue) {
  order::Unobserved section;
  queues_.emplace(++queueNumbers_, queue);
  return queueNumbers_;
}

SimCore::RunByTest::RunByTest(SimCore& core, const char* verb) : core_(core) {
  if (core.running_ != nullptr) {
    misuse(std::string(verb) + " from a job of '" + nameOf(core.frame_) + "'");
  }
  order::release(&core.testToJobs_);
  section_.emplace();
}

SimCore::RunByTest::~RunByTest() {
  section_.reset();
  order::acquire(&core_.jobsToTest_);
}

bool SimCore::step() {
  if (ready_.empty()) return false;
  if (++stepsAtThisTime_ > maxStepsAtOneTime) {
    misuse("jobs go on and on while no time passes\n" + dump());
  }
  const size_t chosen = ready_.size() == 1 ? 0 : choices_.below(ready_.size());
  Ready ready = std::move(ready_[chosen]);
  if (chosen + 1 != ready_.size()) ready_[chosen] = std::move(ready_.back());
  ready_.pop_back();
  if (ready.woken != nullptr) {
    enter(*ready.woken->worker);
    return true;
  }
  auto worker = workerFor(*ready.queue);
  worker->queue = std::move(ready.queue);
  worker->entry = std::move(ready.entry);
  atWork_.push_back(std::move(worker));
  enter(*atWork_.back());
  return true;
}

void SimCore::enter(Worker& worker) {
  Worker* const before = std::exchange(running_, &worker);
  const Frame* const frame = std::exchange(frame_, nullptr);
  worker.fiber.resume();
  running_ = before;
  frame_ = frame;
  if (!worker.fiber.idle()) return;
  const auto ended = std::find_if(atWork_.rbegin(), atWork_.rend(),
                                  [&](const auto& each) { return each.get() == &worker; });
  auto owned = std::move(*ended);
  atWork_.erase(std::next(ended).base());
  giveBack(std::move(owned));
}

void SimCore::runJob(Worker& worker) {
  order::acquire(&testToJobs_);
  worker.entry.posted.pass();
  worker.queue->run(worker.entry.job, worker.entry.access);
  order::release(&jobsToTest_);
}

std::unique_ptr<Worker> SimCore::workerFor(SimQueue& queue) {
  if (queue.worker) return std::move(queue.worker);
  if (!idle_.empty()) {
    auto worker = std::move(idle_.back());
    idle_.pop_back();
    return worker;
  }
  return std::make_unique<Worker>(*this);
}

void SimCore::giveBack(std::unique_ptr<Worker> worker) {
  const auto queue = std::move(worker->queue);
  if (!order::observed) {
    idle_.push_back(std::move(worker));
  } else if (queue->serial()) {
    queue->worker = std::move(worker);
  }
}

void SimCore::block(Wait& wait, std::optional<Duration> deadline) {
  wait.worker = running_;
  wait.frame = frame_;
  wait.unlimited = !deadline;
  if (wait.kind == Wait::For::turn) refuseCycleThroughMain(wait);
  std::optional<AlarmKey> alarm;
  if (deadline) {
    alarm = AlarmKey{*deadline, ++alarmNumbers_};
    alarms_.emplace(*alarm, Alarm{nullptr, &wait});
  }
  waits_.push_back(&wait);
  if (wait.worker == nullptr) {
    waitInTest(wait);
  } else {
    order::Observed observed;
    order::release(&jobsToTest_);
    wait.worker->fiber.handOver();
    order::acquire(&testToJobs_);
  }
  frame_ = wait.frame;
  std::erase(waits_, &wait);
  if (alarm) alarms_.erase(*alarm);
}

void SimCore::wake(Wait& wait) {
  if (std::exchange(wait.woken, true) || wait.worker == nullptr) return;
  ready_.push_back({&wait, nullptr, {}});
}

void SimCore::waitInTest(Wait& wait) {
  while (!wait.woken) {
    if (step()) continue;
    const auto next = nextDeadline();
    if (!next) misuse("the test waits for '" + wait.what + "', which nothing can bring\n" + dump());
    advanceTo(*next);
  }
}

void SimCore::checkMayWait(const std::string& what) const {
  if (holds(frame_, mainQueue)) misuse(waitOnMainText("waits for", what));
}

const Wait* SimCore::waiterHolding(const Queue* queue) const {
  for (const Wait* wait : waits_) {
    if (wait->kind == Wait::For::turn && !wait->woken && holds(wait->frame, queue)) return wait;
  }
  return nullptr;
}

void SimCore::refuseCycleThroughMain(const Wait& wait) const {
  bool throughMain = holds(wait.frame, mainQueue);
  const Wait* at = &wait;
  for (size_t i = 0; i <= waits_.size(); ++i) {
    at = waiterHolding(at->turnOf);
    if (at == nullptr) return;
    throughMain |= holds(at->frame, mainQueue);
    if (!holds(wait.frame, at->turnOf)) continue;
    if (!throughMain) return;
    misuse("sync onto '" + wait.what + "' from a job of '" + nameOf(wait.frame) + "', while '" +
           nameOf(at->frame) + "' waits for '" + at->what + "'");
  }
}

SimCore::AlarmKey SimCore::setAlarm(Duration time, std::shared_ptr<SimTimer> timer) {
  const AlarmKey key{time, ++alarmNumbers_};
  alarms_.emplace(key, Alarm{std::move(timer), nullptr});
  return key;
}

void SimCore::forgetAlarm(const AlarmKey& key) {
  // Destroyed last: what the timer holds may come back here.
  const auto forgotten = alarms_.extract(key);
}

std::optional<Duration> SimCore::nextDeadline() const {
  if (alarms_.empty()) return std::nullopt;
  return std::max(now_, alarms_.begin()->first.time);
}

void SimCore::advanceTo(Duration time) {
  if (time > now_) {
    for (const Wait* wait : waits_) {
      if (wait->kind == Wait::For::turn && holds(wait->frame, mainQueue)) {
        misuse("job of mainQueue waits for its turn on '" + wait->what +
               "' while time passes: the main queue never waits\n" + dump());
      }
    }
    stepsAtThisTime_ = 0;
    now_ = time;
  }
  // Equal times fire in the order in which they were set.
  while (!alarms_.empty() && alarms_.begin()->first.time <= now_) {
    const Alarm alarm = std::move(alarms_.extract(alarms_.begin()).mapped());
    if (alarm.wait != nullptr) {
      wake(*alarm.wait);
    } else {
      alarm.timer->ring();
    }
  }
}

void SimCore::end() {
  ending_ = true;
  // What is dropped may hold anything, and what it holds may come back here.
  const auto ready = std::exchange(ready_, {});
  const auto alarms = std::exchange(alarms_, {});
  waits_.clear();
  std::vector<std::shared_ptr<SimQueue>> queues;
  for (const auto& [number, queue] : queues_) {
    if (auto alive = queue->weak_from_this().lock()) queues.push_back(std::move(alive));
  }
  for (const auto& queue : queues) queue->dropWaiting();
  const auto atWork = std::exchange(atWork_, {});
  const auto idle = std::exchange(idle_, {});
}

}  // namespace kestrin::dispatch
