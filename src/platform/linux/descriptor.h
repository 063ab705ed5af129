#pragma once

#include <algorithm>
#include <chrono>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kestrin {

/// A file descriptor that is closed with its owner.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

/// Ends a thread's wait in `poll` from another thread.
class WakeEvent {
 public:
  WakeEvent() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  int get() const { return fd_.get(); }
  void signal() const { (void)!eventfd_write(fd_.get(), 1); }
  void reset() const {
    eventfd_t value;
    (void)!eventfd_read(fd_.get(), &value);
  }

 private:
  Descriptor fd_;
};

/// Waits until one of the descriptors is readable or broken, or the time is over (negative: no
/// limit).
inline void waitReadable(const std::vector<int>& descriptors, std::chrono::milliseconds limit) {
  std::vector<pollfd> polled;
  for (int fd : descriptors) polled.push_back({fd, POLLIN, 0});
  poll(polled.data(), polled.size(), static_cast<int>(limit.count()));
}

/// A point in real time by which something must be done.
class Deadline {
 public:
  explicit Deadline(std::chrono::nanoseconds duration)
      : end_(std::chrono::steady_clock::now() + duration) {}
  bool passed() const { return std::chrono::steady_clock::now() >= end_; }
  /// Never negative; rounded up, so that a wait of this length ends behind the deadline.
  std::chrono::milliseconds left() const {
    const auto rest =
        std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
    return std::max(rest, std::chrono::milliseconds(0));
  }

 private:
  std::chrono::steady_clock::time_point end_;
};

}  // namespace kestrin
