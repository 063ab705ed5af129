#include "app/desk.h"
#include "app/doctor.h"

namespace kestrin::test {
namespace {

std::vector<Finding> examine(SimulatedWorld& world, Doctor::Options options) {
  Logger logger{world.dispatch, world.notifications};
  Doctor doctor{world.platform, logger, std::move(options)};
  std::vector<Finding> findings;
  bool done = false;
  world.dispatch.globalQueue()->post([&] {
    findings = doctor.examine();
    done = true;
  });
  EXPECT_TRUE(world.simulation->runUntil([&] { return done; }, 120s));
  world.simulation->runFor(1s);
  return findings;
}

const Finding& find(const std::vector<Finding>& findings, const std::string& check) {
  for (const auto& finding : findings) {
    if (finding.check == check) return finding;
  }
  ADD_FAILURE() << "no check " << check;
  return findings.front();
}

TEST(Doctor, FindsAHealthyMachineHealthyAndNamesTheMendOfEachFault) {
  Desk desk;
  const Doctor::Options options{.endpoints = {"http://127.0.0.1:8001", "http://127.0.0.1:8082",
                                              "http://127.0.0.1:8765", "http://127.0.0.1:8780"},
                                .holdKey = "Right Ctrl",
                                .display = "X11"};
  desk.speak(10s);
  auto findings = examine(desk, options);
  for (const auto& finding : findings)
    EXPECT_EQ(finding.state, Finding::State::ok) << finding.line();
  EXPECT_NE(find(findings, "Microphone").detail.find("highest level 30 %"), std::string::npos);

  // Silence is suspicious but no fault; a missing language model is none either.
  desk.simulation->runFor(20s);
  desk.http.on("GET", "127.0.0.1:8082/health", ScriptedReply::refused());
  findings = examine(desk, options);
  EXPECT_EQ(find(findings, "Microphone").state, Finding::State::warning);
  EXPECT_TRUE(Doctor::allThere(findings));

  // An overlay that may be covered hinders no dictation either.
  auto covered = options;
  covered.overlayLoss = "no layers; it may be covered";
  findings = examine(desk, covered);
  EXPECT_EQ(find(findings, "Overlay").state, Finding::State::warning);
  EXPECT_EQ(find(findings, "Overlay").detail, covered.overlayLoss);
  EXPECT_TRUE(Doctor::allThere(findings));

  desk.audio.setServerRunning(false);
  desk.http.on("GET", "127.0.0.1:8765/health", ScriptedReply::never());
  desk.http.on("POST", "127.0.0.1:8001/transcribe/pcm", ScriptedReply::body("nonsense", 500));
  auto blind = options;
  blind.display.clear();
  findings = examine(desk, blind);
  for (const char* check : {"Display", "Sound server", "Microphone", "Recognition", "Agent"}) {
    EXPECT_EQ(find(findings, check).state, Finding::State::missing) << check;
    EXPECT_FALSE(find(findings, check).mend.empty()) << check;
  }
  EXPECT_FALSE(Doctor::allThere(findings));
  for (const auto& finding : findings) EXPECT_NE(finding.check, "Overlay") << "above nothing";
}

}  // namespace
}  // namespace kestrin::test
