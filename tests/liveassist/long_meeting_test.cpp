#include <fstream>
#include <unistd.h>

#include "liveassist/live_world.h"

namespace kestrin::test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int hours = 1;  // the others cost minutes there, and the memory is the sanitizer's
#else
constexpr int hours = 8;
#endif

double residentMegabytes() {
  std::ifstream file("/proc/self/statm");
  long all = 0, resident = 0;
  file >> all >> resident;
  return double(resident) * double(sysconf(_SC_PAGESIZE)) / 1e6;
}

TEST(LiveAssistView, AMeetingOfADayNeitherGrowsNorDrifts) {
  LiveWorld world;
  world.http.forgetDone();
  world.audio.removeMicrophone("mic");
  world.audio.addMicrophone("mic", "Microphone", {16000, 1});
  world.audio.setFragment(100ms, 15ms);
  world.start();
  const std::vector<float> speech(2 * 16000, 0.3F);
  double atFirst = 0, later = 0;
  for (int minute = 0; minute < hours * 60; ++minute) {
    world.audio.speak("mic", speech, 16000);
    const Date mine = world.dispatch.clock().wallNow();
    world.simulation->runFor(20s);
    world.audio.playSystemSound(speech, 16000);
    const Date theirs = world.dispatch.clock().wallNow();
    world.simulation->runFor(40s);
    const auto& lines = world.view().chat().messages();
    ASSERT_EQ(lines.size(), size_t(minute + 1) * 2) << "one line a side and minute";
    const auto late = [](const LAChatMessage& line, Date said) { return line.timestamp - said; };
    // 2 s of speech, up to 3.5 s of silence after it, and the pass that cuts.
    ASSERT_LT(late(lines[lines.size() - 2], mine), 8s) << "minute " << minute;
    ASSERT_LT(late(lines.back(), theirs), 8s) << "minute " << minute;
    if (minute == 30) atFirst = residentMegabytes();
    if (minute % 60 == 59) later = residentMegabytes();
  }
  EXPECT_NEAR(world.heardSeconds, 2 * hours * 3600, 20) << "nothing lost, nothing twice";
  // The transcript and the log are some megabytes; the sound of one channel would be 115 an hour.
  if (hours > 1) {
    EXPECT_LT(later - atFirst, 24) << later;
  }
}

}  // namespace
}  // namespace kestrin::test
