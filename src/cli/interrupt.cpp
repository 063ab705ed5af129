#include "cli/interrupt.h"

#include <csignal>

namespace kestrin::cli {
namespace {

using namespace std::chrono_literals;

volatile std::sig_atomic_t interrupted = 0;

void note(int signal) {
  interrupted = 1;
  std::signal(signal, SIG_DFL);
}

void handle(void (*handler)(int)) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, handler);
}

}  // namespace

Interrupt::Interrupt(Dispatch& dispatch, std::function<void()> onInterrupt) {
  interrupted = 0;
  handle(note);
  // A handler may do next to nothing; whoever looks soon does the rest.
  look_ = dispatch.every(dispatch.mainQueue(), 50ms, [onInterrupt = std::move(onInterrupt)] {
    if (interrupted) {
      interrupted = 0;
      onInterrupt();
    }
  });
}

Interrupt::~Interrupt() { handle(SIG_DFL); }

}  // namespace kestrin::cli
