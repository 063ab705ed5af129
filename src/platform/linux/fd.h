#pragma once

#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "platform/result.h"

namespace kestrin {

/// Owns a file descriptor.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) reset(std::exchange(other.fd_, -1));
    return *this;
  }
  ~Fd() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

/// "/home/a/b: Permission denied" with errno's number as code.
inline Error posixError(std::string domain, const std::string& what, int number) {
  return {std::move(domain), number, what + ": " + std::generic_category().message(number)};
}

}  // namespace kestrin
