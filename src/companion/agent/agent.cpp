#include "companion/agent/agent.h"

#include <utility>

namespace kestrin::agent {

void CancelToken::cancel() {
  std::vector<Job> jobs;
  {
    std::lock_guard lock(mutex_);
    if (cancelled_) return;
    cancelled_ = true;
    jobs.swap(jobs_);
  }
  for (Job& job : jobs) job();
}

bool CancelToken::isCancelled() const {
  std::lock_guard lock(mutex_);
  return cancelled_;
}

void CancelToken::onCancel(Job job) {
  {
    std::lock_guard lock(mutex_);
    if (!cancelled_) {
      jobs_.push_back(std::move(job));
      return;
    }
  }
  job();
}

}  // namespace kestrin::agent
