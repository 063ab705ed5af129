#include <chrono>
#include <gtest/gtest.h>
#include <random>
#include <thread>

#include "platform/dispatch/threads.h"
#include "platform/json/json.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/posix_processes.h"
#include "platform/text/text.h"
#include "support/loopback_server.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

constexpr int homes = 10;
constexpr int killsPerHome = 10;

/// One user's home, in which programs are started and killed.
struct Home {
  explicit Home(const std::string& services) : services_(services) {
    EXPECT_TRUE(files.writeAtomic(
        folder.file("config/kestrin/settings.json"),
        R"({"nibo_user_name":"Ada","pref_serviceHost":"external","pref_fontSize":"Small"})"));
  }

  /// Starts the program, and kills it when `moment` returns.
  void runAndKill(const std::string& program, const std::vector<std::string>& arguments,
                  const std::function<void()>& moment) {
    const auto ended = dispatch->makeSemaphore(0, "the end of the program");
    const auto child = processes->start(
        {.program = std::string(KESTRIN_BINARY_DIR) + "/bin/" + program,
         .arguments = arguments,
         .environment = {{"HOME", folder.path()},
                         {"XDG_CONFIG_HOME", folder.file("config")},
                         {"XDG_DATA_HOME", folder.file("data")},
                         {"XDG_CACHE_HOME", folder.file("cache")},
                         {"XDG_RUNTIME_DIR", folder.path()},
                         {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder.file("nobus")},
                         {"AT_SPI_BUS_ADDRESS", "unix:path=" + folder.file("nobus")},
                         {"DISPLAY", ""},
                         {"QT_QPA_PLATFORM", "offscreen"},
                         {"PULSE_SERVER", "unix:" + folder.file("nosound")},
                         {"KESTRIN_ASR_URL", services_},
                         {"KESTRIN_AGENT_URL", services_},
                         {"KESTRIN_LLM_URL", services_},
                         {"KESTRIN_BACKEND_URL", services_}}},
        dispatch->globalQueue(), [](const std::string&, bool) {},
        [ended](int) { ended->signal(); });
    ASSERT_TRUE(child) << child.error().description;
    moment();
    (*child)->kill();
    ASSERT_TRUE(ended->wait(std::chrono::seconds(60)));
  }

  std::string historyCopy() const { return folder.file("data/Kestrin/Cache/history.json"); }

  /// Everything that was ever written reads back whole.
  void check() {
    const auto settings =
        Json::parse(files.read(folder.file("config/kestrin/settings.json")).value_or(""));
    ASSERT_TRUE(settings) << "settings are torn";
    EXPECT_EQ(settings->stringAt("nibo_user_name", ""), "Ada");
    const auto size = settings->stringAt("pref_fontSize", "");
    EXPECT_TRUE(size == "Small" || size == "Large") << size;
    const std::string idFile = folder.file("data/com.kestrin.kestrin/device_id.txt");
    for (const auto& id :
         {settings->stringAt("com.kestrin.nibo.device_id", ""), files.read(idFile).value_or("")}) {
      if (id.empty()) continue;
      EXPECT_EQ(id.size(), 23U) << id;
      if (deviceId.empty()) deviceId = id;
      EXPECT_EQ(id, deviceId) << "another identity after a kill";
    }
    if (const auto history = files.read(historyCopy())) {
      const auto parsed = Json::parse(*history);
      ASSERT_TRUE(parsed) << "the history's copy is torn";
      EXPECT_EQ(parsed->objectsAt("history").size(), 2U);
    }
  }

  ScratchFolder folder;
  LinuxFiles files;
  std::string deviceId;

 private:
  const std::string services_;
  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  std::unique_ptr<Processes> processes = makePosixProcesses();
};

TEST(Killed, AtAnyMomentNothingThatWasWrittenIsTorn) {
  LoopbackServer services([](LoopbackServer::Peer& peer) {
    while (const auto request = peer.request()) {
      const bool history = request->starts_with("GET /history/");
      peer.reply(history ? R"({"history":[{"transcript":"a"},{"transcript":"b"}]})" : "{}");
    }
  });
  std::mt19937 random(1);
  const auto within = [&](int microseconds) {
    return [pause = std::chrono::microseconds(random() % static_cast<unsigned>(microseconds))] {
      std::this_thread::sleep_for(pause);
    };
  };
  for (int home = 0; home < homes && !testing::Test::HasFatalFailure(); ++home) {
    Home user("http://" + services.host());
    for (int round = 0; round < killsPerHome && !testing::Test::HasFatalFailure(); ++round) {
      user.runAndKill("kestrin-desktop", {"--tray"}, within(400'000));
      user.runAndKill("kestrin",
                      {"settings", "set", "pref_fontSize", round % 2 == 0 ? "Large" : "Small"},
                      within(40'000));
      user.check();
    }
    // However slow the machine: once all of it has been written.
    user.runAndKill("kestrin-desktop", {"--tray"}, [&] {
      EXPECT_TRUE(eventually([&] { return user.files.exists(user.historyCopy()); }));
    });
    user.check();
    EXPECT_FALSE(user.deviceId.empty());
  }
}

}  // namespace
}  // namespace kestrin::test
