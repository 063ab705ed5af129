#include "platform/dispatch/thread_core.h"

#include <algorithm>
#include <cstdio>

namespace kestrin::dispatch {
namespace {

thread_local const Frame* frameOfThisThread = nullptr;

constexpr std::chrono::hours longestWait(24 * 365);

void refuseMutualWait(const Frame* callerOfMain, const Queue* mainWaitsFor) {
  if (mainWaitsFor == nullptr || !holds(callerOfMain, mainWaitsFor)) return;
  misuse("sync onto 'mainQueue' from a job of '" + nameOf(callerOfMain) +
         "', while the main thread waits for '" + mainWaitsFor->label() + "'");
}

#ifdef NDEBUG
constexpr bool abortOnMainWait = false;
#else
constexpr bool abortOnMainWait = true;
#endif

}  // namespace

const Frame* currentFrame() { return frameOfThisThread; }

RunningOn::RunningOn(const Queue* queue, const Frame* outer)
    : frame_{queue, outer}, before_(frameOfThisThread) {
  frameOfThisThread = &frame_;
}

RunningOn::~RunningOn() { frameOfThisThread = before_; }

std::chrono::steady_clock::time_point deadlineAfter(Duration timeout) {
  return std::chrono::steady_clock::now() + std::clamp<Duration>(timeout, Duration(0), longestWait);
}

void ThreadCore::beginStop() {
  stopping_ = true;
  std::lock_guard lock(mutex_);
  for (Interruptible* wait : waits_) {
    std::lock_guard waitLock(wait->mutex_);
    wait->condition_.notify_all();
  }
}

void ThreadCore::checkMayWait(std::string_view verb, std::string_view what) {
  const Frame* frame = currentFrame();
  if (frame == nullptr) return;
  const Queue* held = mainJobWaitsFor_.load(std::memory_order_relaxed);
  if (!holds(frame, mainQueue) && (held == nullptr || !holds(frame, held))) return;
  if (abortOnMainWait) misuse(waitOnMainText(verb, what));
  static std::atomic<bool> said{false};
  if (said.exchange(true)) return;
  std::fprintf(stderr, "kestrin: %s\n", waitOnMainText(verb, what).c_str());
}

void ThreadCore::beginMainWait(const Queue& queue) {
  std::lock_guard lock(mutex_);
  for (const Frame* caller : callersOfMain_) refuseMutualWait(caller, &queue);
  mainWaitsFor_ = &queue;
  if (holds(currentFrame(), mainQueue)) mainJobWaitsFor_ = &queue;
}

void ThreadCore::endMainWait() {
  std::lock_guard lock(mutex_);
  mainWaitsFor_ = nullptr;
  mainJobWaitsFor_ = nullptr;
}

void ThreadCore::beginCallOfMain(const Frame* frame) {
  std::lock_guard lock(mutex_);
  refuseMutualWait(frame, mainWaitsFor_);
  callersOfMain_.insert(frame);
}

void ThreadCore::endCallOfMain(const Frame* frame) {
  std::lock_guard lock(mutex_);
  callersOfMain_.erase(callersOfMain_.find(frame));
}

void ThreadCore::sleep(Duration duration) {
  const auto deadline = deadlineAfter(duration);
  std::mutex mutex;
  std::condition_variable condition;
  Interruptible interruptible(*this, mutex, condition);
  ThreadPool::Blocked blocked;
  std::unique_lock lock(mutex);
  condition.wait_until(lock, deadline, [this] { return stopping(); });
}

ThreadCore::Interruptible::Interruptible(ThreadCore& core, std::mutex& mutex,
                                         std::condition_variable& condition)
    : core_(core), mutex_(mutex), condition_(condition) {
  std::lock_guard lock(core_.mutex_);
  core_.waits_.insert(this);
}

ThreadCore::Interruptible::~Interruptible() {
  std::lock_guard lock(core_.mutex_);
  core_.waits_.erase(this);
}

}  // namespace kestrin::dispatch
