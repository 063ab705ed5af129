#include "shell/termination_signals.h"

#include <array>
#include <cstdint>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kestrin {
namespace {

constexpr std::array<int, 3> terminationSignals{SIGTERM, SIGINT, SIGHUP};

/// A signal handler reaches nothing but what has static storage.
int wakeDescriptor = -1;

void handleSignal(int) {
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(wakeDescriptor, &one, sizeof one);
}

void setHandlers(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  for (const int signal : terminationSignals) sigaction(signal, &action, nullptr);
}

}  // namespace

TerminationSignals::TerminationSignals(std::function<void()> onSignal) {
  wakeDescriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  notifier_ = std::make_unique<QSocketNotifier>(wakeDescriptor, QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, [onSignal = std::move(onSignal)] {
    uint64_t count = 0;
    if (read(wakeDescriptor, &count, sizeof count) > 0) onSignal();
  });
  setHandlers(handleSignal);
}

TerminationSignals::~TerminationSignals() {
  setHandlers(SIG_DFL);
  notifier_.reset();
  close(wakeDescriptor);
  wakeDescriptor = -1;
}

}  // namespace kestrin
