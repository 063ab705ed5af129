#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <stdlib.h>
#include <string>
#include <thread>

#include "platform/dispatch/threads.h"

namespace kestrin::test {

/// Polls until `done` holds; false after a limit that no healthy machine needs.
inline bool eventually(const std::function<bool()>& done) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!done()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

/// As `eventually`, running the main queue meanwhile.
inline bool eventually(ThreadsDispatch& dispatch, const std::function<bool()>& done) {
  return eventually([&] {
    dispatch.mainLoop().drain();
    return done();
  });
}

/// What happened, in order, as one text; from any thread.
class Log {
 public:
  void add(const std::string& what) {
    const std::lock_guard lock(mutex_);
    text_ += what;
  }
  std::string text() const {
    const std::lock_guard lock(mutex_);
    return text_;
  }
  bool has(const std::string& part) const { return text().find(part) != std::string::npos; }

 private:
  mutable std::mutex mutex_;
  std::string text_;
};

/// A folder that is gone after the test.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = std::filesystem::temp_directory_path() / "kestrin-test-XXXXXX";
    path_ = ::mkdtemp(name.data());
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// A variable of this process while a test runs.
class Variable {
 public:
  Variable(std::string name, const std::string& value) : name_(std::move(name)) {
    if (const char* old = getenv(name_.c_str())) old_ = old;
    setenv(name_.c_str(), value.c_str(), 1);
  }
  ~Variable() { old_ ? setenv(name_.c_str(), old_->c_str(), 1) : unsetenv(name_.c_str()); }

 private:
  std::string name_;
  std::optional<std::string> old_;
};

}  // namespace kestrin::test
