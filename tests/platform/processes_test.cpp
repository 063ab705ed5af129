#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "platform/dispatch/simulation.h"
#include "platform/linux/child_output.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/posix_processes.h"
#include "platform/simulated/simulated_processes.h"
#include "support/worlds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;
using test::Log;

ProcessSpec shell(const std::string& script) {
  return {"/bin/sh", {"-c", script}, {}, "", "", true};
}

struct SimulatedWorld {
  std::unique_ptr<Simulation> dispatch = Simulation::make();
  SimulatedProcesses processes{*dispatch};
  QueueRef queue = dispatch->makeQueue("lines");

  SimulatedWorld() {
    processes.on("sh", [](const ProcessSpec& spec) {
      ScriptedProgram script;
      script.endless = spec.arguments[1].find("sleep") != std::string::npos;
      script.lines = {{{}, "one", false}, {{}, "two", true}};
      script.exitCode = 3;
      return script;
    });
  }
  void inJob(const std::function<void()>& job) {
    dispatch->globalQueue()->post(job);
    dispatch->runFor(1h);
  }
  bool until(const std::function<bool()>& done) { return dispatch->runUntil(done, 1h); }
};

struct RealWorld {
  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  std::unique_ptr<Processes> processes_ = makePosixProcesses();
  Processes& processes = *processes_;
  QueueRef queue = dispatch->makeQueue("lines");

  void inJob(const std::function<void()>& job) { job(); }
  bool until(const std::function<bool()>& done) { return test::eventually(done); }
};

template <class World>
struct ProcessesContract : ::testing::Test {
  World world;
};
using Worlds = ::testing::Types<SimulatedWorld, RealWorld>;
TYPED_TEST_SUITE(ProcessesContract, Worlds);

TYPED_TEST(ProcessesContract, RunGivesBothStreamsAndTheCode) {
  this->world.inJob([this] {
    const auto output = this->world.processes.run(shell("echo one; echo two >&2; exit 3"), 60s);
    ASSERT_TRUE(output) << output.error().description;
    EXPECT_EQ(output->exitCode, 3);
    EXPECT_EQ(output->standardOutput, "one\n");
    EXPECT_EQ(output->standardError, "two\n");
    const auto late = this->world.processes.run(shell("echo one; sleep 1000"), 50ms);
    EXPECT_EQ(late.error().code, ETIMEDOUT);
    EXPECT_EQ(late.error().domain, "Processes");
  });
}

TYPED_TEST(ProcessesContract, AMissingProgramIsAnError) {
  this->world.inJob([this] {
    for (const char* missing : {"/no/such/program", "kestrin-no-such-program", "relative/sh", ""}) {
      EXPECT_EQ(this->world.processes.run({missing, {}, {}, "", "", true}, 60s).error().code,
                ENOENT)
          << missing;
      EXPECT_FALSE(this->world.processes.find(missing));
    }
    EXPECT_TRUE(this->world.processes.find("sh"));
    EXPECT_EQ(this->world.processes.find("/bin/sh"), "/bin/sh");
  });
}

TYPED_TEST(ProcessesContract, LinesArriveBeforeTheEndAndASignalEndsIt) {
  Log log;
  const auto line = [&](const std::string& text, bool isError) {
    log.add((isError ? "2:" : "1:") + text + " ");
  };
  const auto exit = [&](int code) { log.add("=" + std::to_string(code) + " "); };
  const auto brief = this->world.processes.start(shell("echo one; sync; echo two >&2; exit 3"),
                                                 this->world.queue, line, exit);
  ASSERT_TRUE(brief);
  EXPECT_GT((*brief)->pid(), 0);
  EXPECT_TRUE(this->world.until([&] { return log.has("="); }));
  EXPECT_TRUE(log.has("1:one ") && log.has("2:two "));
  EXPECT_EQ(log.text().substr(log.text().size() - 3), "=3 ");
  (*brief)->terminate();  // it is gone: nothing happens
  const auto endless =
      this->world.processes.start(shell("echo one; sleep 1000"), this->world.queue, nullptr, exit);
  ASSERT_TRUE(endless);
  (*endless)->terminate();
  EXPECT_TRUE(this->world.until([&] { return log.has("=143"); }));
}

/// Gone, or a zombie that nobody waits for.
bool hasEnded(pid_t pid) {
  const auto stat = LinuxFiles().read("/proc/" + std::to_string(pid) + "/stat");
  return !stat || stat->empty() || stat->find(") Z") != std::string::npos;
}

struct PosixProcesses : ::testing::Test {
  RealWorld world;
  std::string run(const ProcessSpec& spec) {
    const auto output = world.processes.run(spec, 60s);
    return output ? output->standardOutput : output.error().description;
  }
};

TEST_F(PosixProcesses, ArgumentsEnvironmentFolderAndInputArriveUntouched) {
  ::setenv("KESTRIN_TEST_GONE", "here", 1);
  ProcessSpec spec = shell("printf '%s|' \"$1\" \"$A\" \"$KESTRIN_TEST_GONE\" \"$PWD\"; cat");
  spec.arguments.insert(spec.arguments.end(), {"sh", "$(reboot); `x` \"'\n*"});
  spec.environment = {{"A", "b=c"}, {"KESTRIN_TEST_GONE", ""}};
  spec.workingFolder = "/usr";
  spec.input = std::string(300'000, 'i');
  EXPECT_EQ(run(spec), "$(reboot); `x` \"'\n*|b=c||/usr|" + spec.input);
  spec.workingFolder = "/no/such/folder";
  EXPECT_EQ(run(spec), "/bin/sh: No such file or directory");
  // Nothing of this process but the standard streams, no blocked signals, own group.
  EXPECT_EQ(run(shell("ls /proc/self/fd | wc -l; grep SigBlk /proc/self/status")),
            "4\nSigBlk:\t0000000000000000\n");
}

TEST_F(PosixProcesses, AFloodIsBoundedAndDoesNotHoldUpTheTimeOut) {
  const auto output = world.processes.run(shell("head -c 100000000 /dev/zero; echo end >&2"), 300s);
  ASSERT_TRUE(output);
  EXPECT_EQ(output->standardOutput.size(), 64u << 20);
  EXPECT_EQ(output->standardError, "end\n");
  EXPECT_EQ(world.processes.run(shell("yes"), 200ms).error().code, ETIMEDOUT);
}

TEST_F(PosixProcesses, TheTimeOutKillsGrandchildrenAndTheEndDoesNotWaitForThem) {
  test::ScratchFolder scratch;
  const std::string pidFile = scratch.file("pid");
  const auto grandchild = [&] {
    pid_t pid = 0;
    EXPECT_TRUE(test::eventually([&] {
      pid = std::atoi(LinuxFiles().read(pidFile).value_or("").c_str());
      return pid > 0;
    }));
    return pid;
  };
  const std::string script = "sleep 1000 & echo $! > '" + pidFile + "'; ";
  EXPECT_EQ(world.processes.run(shell(script + "wait"), 2s).error().code, ETIMEDOUT);
  EXPECT_TRUE(test::eventually([&, pid = grandchild()] { return hasEnded(pid); }));
  // The grandchild keeps the pipe open.
  EXPECT_EQ(run(shell(script + "echo done")), "done\n");
  ::kill(grandchild(), SIGKILL);
}

TEST_F(PosixProcesses, InputCanBeWrittenWhileItRuns) {
  Log log;
  const auto child = world.processes.start(
      {"cat", {}, {}, "", "first\n", true}, world.queue,
      [&](const std::string& line, bool) { log.add(line + " "); },
      [&](int code) { log.add("=" + std::to_string(code)); });
  ASSERT_TRUE(child);
  EXPECT_TRUE(test::eventually([&] { return log.text() == "first "; }));
  (*child)->write("sec");
  (*child)->write("ond\r\nbad \xFF byte\nlast");
  EXPECT_TRUE(
      test::eventually([&] { return log.text() == "first second bad \xEF\xBF\xBD byte "; }));
  (*child)->closeInput();
  EXPECT_TRUE(test::eventually([&] { return log.has("="); }));
  EXPECT_EQ(log.text(), "first second bad \xEF\xBF\xBD byte last =0");
  (*child)->write("to nobody");
}

/// Not a test of its own but the program that the next one kills: starts a child and waits for its
/// end.
TEST_F(PosixProcesses, DISABLED_ParentToBeKilled) {
  ProcessSpec spec = shell("sleep 1000");
  spec.dieWithParent = ::getenv("KESTRIN_TEST_TIED") != nullptr;
  const auto child = world.processes.start(spec, world.queue, nullptr, nullptr);
  std::printf("child %d\n", child ? (*child)->pid() : 0);
  std::fflush(stdout);
  for (;;) ::pause();
}

TEST_F(PosixProcesses, AChildDiesWithItsParentAndALoneOneLivesOn) {
  for (const bool tied : {true, false}) {
    ProcessSpec parent{"/proc/self/exe",
                       {"--gtest_also_run_disabled_tests", "--gtest_filter=*ParentToBeKilled"},
                       {{"KESTRIN_TEST_TIED", tied ? "1" : ""}},
                       "",
                       "",
                       true};
    std::atomic<int> pid = 0;
    Log log;
    const auto running = world.processes.start(
        parent, world.queue,
        [&](const std::string& line, bool) {
          if (line.compare(0, 6, "child ") == 0) pid = std::atoi(line.c_str() + 6);
        },
        [&](int) { log.add("ended"); });
    ASSERT_TRUE(running);
    ASSERT_TRUE(test::eventually([&] { return pid > 0; }));
    EXPECT_FALSE(hasEnded(pid));
    (*running)->kill();
    EXPECT_TRUE(test::eventually([&] { return log.has("ended"); }));
    if (tied) {
      EXPECT_TRUE(test::eventually([&] { return hasEnded(pid); }));
    } else {
      EXPECT_FALSE(hasEnded(pid));
      ::kill(-pid, SIGKILL);
    }
  }
}

TEST(LineCutter, CutsAnywhereTheSame) {
  const std::string text = "one\r\ntwo \xC3\xA9\n\nbad\xC3\nlast \xE2\x82\xAC";
  const std::vector<std::string> lines{"one", "two \xC3\xA9", "", "bad\xEF\xBF\xBD",
                                       "last \xE2\x82\xAC"};
  for (size_t step = 1; step <= text.size(); ++step) {
    LineCutter cutter;
    std::vector<std::string> out;
    const auto add = [&](const std::vector<std::string>& more) {
      out.insert(out.end(), more.begin(), more.end());
    };
    for (size_t at = 0; at < text.size(); at += step)
      add(cutter.take(std::string_view(text).substr(at, step)));
    add(cutter.rest());
    EXPECT_EQ(out, lines) << step;
  }
  LineCutter endless;
  size_t delivered = 0;
  for (int i = 0; i < 1'000'000; ++i) {
    for (const auto& piece : endless.take("\xE2\x82\xAC")) delivered += piece.size();
  }
  for (const auto& piece : endless.rest()) delivered += piece.size();
  EXPECT_EQ(delivered, 3'000'000u);  // nothing repaired: no character was split
}

}  // namespace
}  // namespace kestrin
