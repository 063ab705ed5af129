#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/json/json.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/posix_processes.h"
#include "support/loopback_server.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

std::string freeAddress() {
  return "http://" + LoopbackServer([](LoopbackServer::Peer&) {}).host();
}

/// Running, not only waiting to be collected by whoever is responsible for orphans.
bool isAlive(int pid) {
  const auto stat = LinuxFiles().read("/proc/" + std::to_string(pid) + "/stat");
  return stat && stat->substr(stat->rfind(')') + 1, 2) != " Z";
}

/// The built program beside a companion that stands in for ours, with a home of its own.
struct ServicesWorld {
  ServicesWorld() {
    std::filesystem::create_directory(folder.file("bin"));
    std::filesystem::copy(KESTRIN_BINARY_DIR "/bin/kestrin", folder.file("bin/kestrin"));
    std::filesystem::copy(KESTRIN_SOURCE_DIR "/tests/cli/standin/kestrin-companion",
                          folder.file("bin/kestrin-companion"));
  }
  ~ServicesWorld() { run({"services", "down"}); }

  ProcessOutput run(std::vector<std::string> arguments) {
    const auto output =
        processes->run({.program = folder.file("bin/kestrin"),
                        .arguments = std::move(arguments),
                        .environment = {{"HOME", folder.path()},
                                        {"XDG_CONFIG_HOME", folder.file("config")},
                                        {"XDG_STATE_HOME", folder.file("state")},
                                        {"XDG_RUNTIME_DIR", folder.path()},
                                        {"DISPLAY", ""},
                                        {"WAYLAND_DISPLAY", ""},
                                        {"KESTRIN_ASR_URL", asr},
                                        {"KESTRIN_LLM_URL", llm},
                                        {"KESTRIN_AGENT_URL", agent},
                                        {"KESTRIN_BACKEND_URL", "http://127.0.0.1:9"},
                                        {"KESTRIN_TEST_COMPANION", companion}}},
                       std::chrono::seconds(120));
    return output ? *output
                  : ProcessOutput{.exitCode = -1, .standardError = output.error().description};
  }
  Json status() {
    return Json::parse(run({"services", "status", "--json"}).standardOutput).value_or(Json());
  }

  ScratchFolder folder;
  std::string asr = freeAddress(), llm = freeAddress(), agent = freeAddress();
  std::string companion;
  std::unique_ptr<Processes> processes = makePosixProcesses();
};

TEST(CliServices, UpStartsOneCompanionOfItsOwnSessionAndDownEndsExactlyThat) {
  ServicesWorld world;
  EXPECT_EQ(world.status().boolAt("asr"), false);
  const auto up = world.run({"services", "up"});
  ASSERT_EQ(up.exitCode, 0) << up.standardError;
  const auto status = world.status();
  EXPECT_EQ(status.stringAt("host"), "companion");
  EXPECT_EQ(status.boolAt("asr"), true);
  EXPECT_EQ(status.boolAt("llm"), true);
  EXPECT_EQ(status.boolAt("agent"), true);
  EXPECT_EQ(status.boolAt("backend"), false);
  const int pid = static_cast<int>(status.intAt("pid").value_or(0));
  ASSERT_GT(pid, 1);
  EXPECT_EQ(::getsid(pid), pid) << "it would end with the terminal";

  const auto second = world.run({"services", "up"});
  EXPECT_EQ(second.exitCode, 1);
  EXPECT_NE(second.standardError.find(std::to_string(pid)), std::string::npos);
  EXPECT_EQ(world.run({"services", "down"}).exitCode, 0);
  EXPECT_FALSE(isAlive(pid));
  EXPECT_EQ(world.status().boolAt("agent"), false);
  EXPECT_EQ(world.run({"services", "down"}).exitCode, 1);
}

TEST(CliServices, ACompanionThatFailsIsReportedWithItsLog) {
  ServicesWorld world;
  world.companion = "ends";
  const auto up = world.run({"services", "up"});
  EXPECT_EQ(up.exitCode, 1);
  const std::string log = world.folder.file("state/kestrin/companion.log");
  EXPECT_NE(up.standardError.find(log), std::string::npos) << up.standardError;
  EXPECT_EQ(LinuxFiles().read(log).value_or(""), "no model here\n");
  EXPECT_FALSE(world.status().has("pid"));
}

TEST(CliServices, WhatOthersRunIsLeftAlone) {
  ServicesWorld world;
  const auto stranger =
      world.processes->start({.program = "sleep", .arguments = {"600"}}, {}, {}, {});
  ASSERT_TRUE(stranger);
  const int pid = (*stranger)->pid();
  LinuxFiles().writeAtomic(world.folder.file("kestrin-companion.pid"),
                           "{\"pid\":" + std::to_string(pid) + ",\"start\":\"1\"}");
  EXPECT_EQ(world.run({"services", "down"}).exitCode, 1);
  EXPECT_TRUE(isAlive(pid));
  (*stranger)->kill();

  LoopbackServer others([](LoopbackServer::Peer& peer) {
    while (peer.request()) peer.reply("{}");
  });
  world.asr = world.agent = "http://" + others.host();
  const auto up = world.run({"services", "up"});
  EXPECT_EQ(up.exitCode, 1);
  EXPECT_FALSE(world.status().has("pid"));

  EXPECT_EQ(world.run({"settings", "set", "pref_serviceHost", "external"}).exitCode, 0);
  EXPECT_EQ(world.run({"services", "up"}).exitCode, 1);
  EXPECT_EQ(world.run({"services", "down"}).exitCode, 1);
  EXPECT_EQ(world.status().stringAt("host"), "external");
}

}  // namespace
}  // namespace kestrin::test
