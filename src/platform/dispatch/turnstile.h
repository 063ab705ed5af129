#pragma once

#include <deque>
#include <utility>

namespace kestrin::dispatch {

enum class Access { shared, exclusive };

/// Who may run on a queue, in posting order: any number of shared turns side by side, an exclusive
/// turn alone. A serial queue has exclusive turns only. `Entry` has a member `access`. Not
/// thread-safe.
template <class Entry>
class Turnstile {
 public:
  /// Takes a turn at once if nobody is ahead.
  bool tryEnter(Access access) {
    if (!waiting_.empty() || !isFree(access)) return false;
    begin(access);
    return true;
  }
  void enqueue(Entry entry) { waiting_.push_back(std::move(entry)); }
  /// Moves the first waiting entry to `out` and gives it its turn, if it can have one now.
  bool startNext(Entry& out) {
    if (waiting_.empty() || !isFree(waiting_.front().access)) return false;
    begin(waiting_.front().access);
    out = std::move(waiting_.front());
    waiting_.pop_front();
    return true;
  }
  void leave(Access access) {
    if (access == Access::exclusive) {
      exclusive_ = false;
    } else {
      --shared_;
    }
  }
  size_t waitingCount() const { return waiting_.size(); }
  /// Takes away everything that has not had its turn.
  std::deque<Entry> takeWaiting() { return std::exchange(waiting_, {}); }

 private:
  bool isFree(Access access) const {
    return !exclusive_ && (access == Access::shared || shared_ == 0);
  }
  void begin(Access access) {
    if (access == Access::exclusive) {
      exclusive_ = true;
    } else {
      ++shared_;
    }
  }

  std::deque<Entry> waiting_;
  int shared_ = 0;
  bool exclusive_ = false;
};

}  // namespace kestrin::dispatch
