#pragma once

#include <QSocketNotifier>
#include <functional>
#include <memory>

namespace kestrin {

/// Turns SIGTERM, SIGINT and SIGHUP into a call on the main thread. One object in a process.
class TerminationSignals {
 public:
  explicit TerminationSignals(std::function<void()> onSignal);
  ~TerminationSignals();

 private:
  std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace kestrin
