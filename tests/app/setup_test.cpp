#include "app/desk.h"

namespace kestrin::test {
namespace {

SetupItem item(const std::string& check, bool there, bool required = true) {
  return {{there ? Finding::State::ok : Finding::State::missing, check, "", ""}, required};
}

TEST(Setup, IsNeededUnlessCompletedHereWithAllInPlaceOrAccepted) {
  struct Case {
    bool completed, sameMachine, microphone, accepted;
    bool needed;
  };
  for (const Case& c :
       {Case{true, true, true, false, false}, Case{false, true, true, false, true},
        Case{true, false, true, false, true}, Case{true, true, false, false, true},
        Case{true, true, false, true, false}, Case{true, false, false, true, true}}) {
    SimulatedWorld world;
    MachineIdentity machine{world.controls, world.settings};
    SetupRecord record{world.settings, machine};
    if (c.accepted) record.complete({item("Microphone", false)});
    world.settings.set("nibo_setup_completed", c.completed);
    world.settings.set("nibo_setup_machine_id", c.sameMachine ? machine.machineId() : "elsewhere");
    EXPECT_EQ(record.needsSetup({item("Accessibility bus", true), item("Microphone", c.microphone),
                                 item("Recogniser", false, false)}),
              c.needed);
  }
}

TEST(Setup, EachServiceHostAsksForItsOwn) {
  struct Case {
    const char* host;
    bool program, useLocal;
    std::vector<std::string> missing;
  };
  for (const Case& c : {Case{"external", false, false, {}}, Case{"companion", true, false, {}},
                        Case{"companion", false, false, {"Service host"}},
                        Case{"container", false, false, {"Language model", "Service host"}},
                        Case{"container", true, true, {}}}) {
    Desk desk;
    desk.settings.set("pref_serviceHost", c.host);
    if (c.useLocal) desk.settings.set("pref_useLocalLLM", true);
    if (c.program) {
      for (const char* name : {"kestrin-companion", "docker"}) {
        desk.processes.on(name, ScriptedProgram{});
      }
    }
    CoreServices core{desk.platform,
                      {"http://127.0.0.1:8001", "http://127.0.0.1:8082", "http://127.0.0.1:8765",
                       "http://127.0.0.1:8780"}};
    SetupChecks checks{core, {.endpoints = core.endpoints, .holdKey = "Right Ctrl"}};
    bool done = false;
    SetupItems required, whole;
    desk.dispatch.globalQueue()->post([&] {
      required = checks.examineRequired();
      whole = checks.examine();
      done = true;
    });
    ASSERT_TRUE(desk.simulation->runUntil([&] { return done; }, 30s));
    EXPECT_EQ(missingNames(whole), c.missing) << c.host;
    EXPECT_EQ(missingNames(required), c.missing) << c.host << ": the start asks for less or more";
    EXPECT_EQ(whole.size(), 6u);
  }
}

TEST(Setup, AMachineWithAllInPlaceStartsUnaskedAndIsRemembered) {
  Desk desk;
  desk.startReady();
  EXPECT_TRUE(desk.settings.boolean("nibo_setup_completed"));
  EXPECT_EQ(desk.settings.string("nibo_setup_machine_id"), "0123456789abcdef");
  EXPECT_TRUE(desk.userNotifications.shown.empty());
}

TEST(Setup, WhatIsMissingIsToldAndTheStartGoesOnOnceItIsThere) {
  Desk desk;
  desk.audio.setServerRunning(false);
  auto& app = desk.start();
  desk.simulation->runFor(30s);
  EXPECT_TRUE(app.setup().isShown());
  EXPECT_EQ(desk.statuses, std::vector<std::string>{"⚠️ Setup needed: Microphone"});
  ASSERT_EQ(desk.userNotifications.shown.size(), 1u) << "told again and again";
  EXPECT_NE(desk.userNotifications.shown[0].first.body.find("❌ Microphone: "), std::string::npos);
  EXPECT_TRUE(desk.http.requests("127.0.0.1:8765/health").empty()) << "it has started already";
  desk.dictate(300ms);
  desk.onMain([&] { app.obey(ControlCommand::toggle); });
  EXPECT_EQ(desk.statuses.back(), "⏳ Still loading, please wait...");
  desk.audio.setServerRunning(true);
  desk.simulation->runFor(10s);
  EXPECT_TRUE(app.delegate().isAppReady) << desk.shown();
  EXPECT_FALSE(app.setup().isShown());
}

TEST(Setup, AcceptedByTheNotificationOrInATerminalItStartsWithoutAndRemembersIt) {
  for (const bool inTerminal : {false, true}) {
    Desk desk;
    desk.audio.setServerRunning(false);
    auto& app = desk.start();
    desk.simulation->runFor(5s);
    ASSERT_EQ(desk.userNotifications.shown.size(), 1u);
    if (inTerminal) {
      SetupRecord{desk.settings, app.core().machineIdentity}.complete(app.setup().items());
    } else {
      desk.userNotifications.shown[0].second("START_ANYWAY");
    }
    desk.simulation->runFor(5s);
    EXPECT_TRUE(app.delegate().isAppReady) << desk.shown();
    desk.onMain([&] { app.stop(); });
    desk.statuses.clear();
    desk.startReady();
    EXPECT_FALSE(desk.showed("⚠️ Setup needed: Microphone"));
  }
}

}  // namespace
}  // namespace kestrin::test
