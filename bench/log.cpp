// What a line of the log costs the thread that logs it. The floor is what any log must do at least:
// read the clock and copy the two texts. Measured alone, with four threads at once, and with a
// reader that fetches all entries meanwhile.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>
#include <vector>

#include "diagnostics/logger.h"
#include "platform/dispatch/threads.h"

using namespace kestrin;
using Steady = std::chrono::steady_clock;

namespace {

constexpr int lines = 200'000;
/// The clock's own cost and grain would show in a single call.
constexpr int callsInARow = 10;
constexpr std::string_view source = "StreamingClient";
constexpr std::string_view message = "Chunk 17 of request 4 inserted at offset 1289 in 3 ms";

struct Figures {
  double median, late;
};

/// Nanoseconds a call.
Figures measure(const std::function<void()>& call) {
  std::vector<double> times;
  for (int i = 0; i < lines / callsInARow; ++i) {
    const auto start = Steady::now();
    for (int j = 0; j < callsInARow; ++j) call();
    times.push_back(std::chrono::duration<double, std::nano>(Steady::now() - start).count() /
                    callsInARow);
  }
  std::sort(times.begin(), times.end());
  return {times[times.size() / 2], times[times.size() * 99 / 100]};
}

void print(const char* what, Figures floor, Figures ours) {
  std::printf("%-30s floor %6.0f / %6.0f ns   ours %6.0f / %6.0f ns   ratio %.2f / %.2f\n", what,
              floor.median, floor.late, ours.median, ours.late, ours.median / floor.median,
              ours.late / floor.late);
}

}  // namespace

int main() {
  const auto dispatch = ThreadsDispatch::make();
  NotificationCenter notifications;
  Logger logger(*dispatch, notifications);
  std::vector<LogEntry> kept(1000);
  size_t next = 0;
  const auto bare = [&] {
    kept[next++ % kept.size()] = {std::chrono::system_clock::now(), LogLevel::info,
                                  std::string(source), std::string(message)};
  };
  const auto ours = [&] { logger.log(source, LogLevel::info, message); };
  const Figures floor = measure(bare);
  print("one thread, median / 99th", floor, measure(ours));

  std::atomic<bool> stopped = false;
  {
    std::vector<std::jthread> others;
    for (int i = 0; i < 3; ++i) {
      others.emplace_back([&] {
        while (!stopped) ours();
      });
    }
    const Figures crowded = measure(ours);
    stopped = true;
    print("four threads", floor, crowded);
  }

  stopped = false;
  std::jthread reader([&] {
    while (!stopped) logger.getEntries("chunk");
  });
  const Figures read = measure(ours);
  stopped = true;
  print("while all entries are read", floor, read);
  reader.join();

  // A single line after silence also sets the timer of the notification.
  std::vector<double> lonely;
  for (int i = 0; i < 20; ++i) {
    const auto quietUntil = Steady::now() + std::chrono::milliseconds(400);
    while (Steady::now() < quietUntil) {
      dispatch->mainLoop().drain();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const auto start = Steady::now();
    ours();
    lonely.push_back(std::chrono::duration<double, std::nano>(Steady::now() - start).count());
  }
  std::sort(lonely.begin(), lonely.end());
  std::printf("%-30s %6.0f ns, worst of %zu %.0f ns\n", "first line after silence",
              lonely[lonely.size() / 2], lonely.size(), lonely.back());
}
