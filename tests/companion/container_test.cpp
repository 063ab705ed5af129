#include <filesystem>
#include <gtest/gtest.h>

#include "companion/raw_client.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/posix_processes.h"
#include "platform/text/text.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

using kestrin::testing::RawClient;

const std::string packaging = KESTRIN_SOURCE_DIR "/packaging/container/";

/// The container's entry script on an installed tree of this machine, with ports of its own.
struct ContainerTree {
  ContainerTree() {
    namespace fs = std::filesystem;
    for (const char* part : {"root/bin", "models", "run"})
      fs::create_directories(folder.file(part));
    fs::create_symlink(KESTRIN_BINARY_DIR "/bin/kestrin-companion",
                       folder.file("root/bin/kestrin-companion"));
    fs::create_symlink(packaging + "kestrin-llm", folder.file("root/bin/kestrin-llm"));
    auto entry = processes->start(
        {.program = packaging + "kestrin-container", .environment = environment()}, queue,
        [this](const std::string& line, bool) { printed.add(line + "\n"); },
        [this](int code) { ended.add("ended " + std::to_string(code)); });
    if (entry) child = *entry;
  }
  ~ContainerTree() {
    if (child && ended.text().empty()) {
      child->terminate();
      EXPECT_TRUE(eventually([this] { return ended.has("ended"); }));
    }
    dispatch->shutDown();
  }
  std::map<std::string, std::string> environment() const {
    return {{"KESTRIN_ROOT", folder.file("root")},
            {"KESTRIN_RUN", folder.file("run")},
            {"KESTRIN_LLM_MODELS", folder.file("models")},
            {"KESTRIN_SUPERVISORD", packaging + "supervisord.conf"},
            {"KESTRIN_COMPANION_PORTS", "0,0,0,0"},
            {"KESTRIN_RECOGNISER_MODEL", "tiny"},
            {"HOME", folder.path()}};
  }
  ProcessOutput control(std::vector<std::string> words) {
    words.insert(words.begin(), {"-c", packaging + "supervisord.conf"});
    return processes
        ->run({.program = "supervisorctl", .arguments = words, .environment = environment()},
              std::chrono::seconds(60))
        .value_or(ProcessOutput{.exitCode = -1});
  }
  /// The port that the last "listening:" line names for the service.
  uint16_t port(const std::string& service) const {
    const std::string text = printed.text();
    const size_t at = text.rfind(" " + service + "=");
    return at == std::string::npos
               ? uint16_t{0}
               : static_cast<uint16_t>(std::stoi(text.substr(at + service.size() + 2)));
  }
  std::string get(const std::string& service, const std::string& path,
                  const std::string& host = "127.0.0.1") {
    RawClient client(port(service));
    client.send("GET " + path + " HTTP/1.1\r\nHost: " + host + "\r\nConnection: close\r\n\r\n");
    return client.readToEnd();
  }

  ScratchFolder folder;
  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  QueueRef queue = dispatch->makeQueue("container test");
  std::unique_ptr<Processes> processes = makePosixProcesses();
  Log printed, ended;
  ChildProcessRef child;
};

TEST(Container, TheEntryScriptRunsTheServicesUnderTheSupervisor) {
  ContainerTree tree;
  ASSERT_TRUE(tree.child);
  ASSERT_TRUE(eventually([&] { return tree.port("agent") != 0 && tree.port("llm") != 0; }))
      << tree.printed.text();
  EXPECT_TRUE(tree.get("agent", "/health").starts_with("HTTP/1.1 200")) << tree.printed.text();
  EXPECT_FALSE(tree.get("asr", "/").empty());
  EXPECT_EQ(tree.printed.text().find("backend="), std::string::npos);
  // On every interface, and still only for requests that name this machine.
  EXPECT_TRUE(tree.get("agent", "/health", "localhost:8765").starts_with("HTTP/1.1 200"));
  EXPECT_TRUE(tree.get("agent", "/health", "evil.example").starts_with("HTTP/1.1 403"));

  // Without a model the port answers and says so.
  EXPECT_TRUE(tree.get("llm", "/health").starts_with("HTTP/1.1 503"));
  const uint16_t before = tree.port("llm");
  const auto restarted = tree.control({"restart", "llm"});
  EXPECT_NE(restarted.standardOutput.find("llm: started"), std::string::npos)
      << restarted.standardOutput << restarted.standardError;
  EXPECT_TRUE(eventually([&] { return tree.port("llm") != before; })) << tree.printed.text();

  tree.child->terminate();
  EXPECT_TRUE(eventually([&] { return tree.ended.has("ended 0"); })) << tree.ended.text();
  EXPECT_TRUE(tree.get("agent", "/health").empty()) << "a service outlives the container";
}

TEST(Container, AModelOnTheDiskIsServedWhereTheImageHasAServer) {
  ScratchFolder folder;
  const auto processes = makePosixProcesses();
  const auto run = [&](const std::string& server) {
    return processes
        ->run({.program = packaging + "kestrin-llm",
               .environment = {{"KESTRIN_ROOT", folder.path()},
                               {"KESTRIN_LLM_MODELS", folder.path()},
                               {"KESTRIN_COMPANION_BIND", "0.0.0.0"},
                               {"KESTRIN_COMPANION_PORTS", "1,2,3,4"},
                               {"KESTRIN_LLM_SERVER", server}}},
              std::chrono::seconds(60))
        .value_or(ProcessOutput{.exitCode = -1});
  };
  std::filesystem::create_directory(folder.file("bin"));
  std::filesystem::copy("/bin/echo", folder.file("bin/kestrin-companion"));
  EXPECT_EQ(run("echo").standardOutput, "--services llm\n");
  std::filesystem::copy("/bin/echo", folder.file("any model.gguf"));
  const std::string model = folder.file("any model.gguf");
  EXPECT_EQ(run("echo").standardOutput,
            "llm: serving " + model + "\n--model " + model + " --host 0.0.0.0 --port 2\n");
  EXPECT_EQ(run("no-such-server").standardOutput, "--services llm\n");
}

}  // namespace
}  // namespace kestrin::test
