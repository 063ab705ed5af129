#include "services/local/docker_commands.h"

namespace kestrin::docker {
namespace {

Arguments inShell(std::string text) { return {"exec", container, "bash", "-lc", std::move(text)}; }

std::string quoted(const char* text) { return std::string("\"") + text + "\""; }

}  // namespace

Arguments daemonCheck() { return {"info"}; }

Arguments containerStatus() {
  return {"ps", "-a", "--filter", "name=^kestrin-unified$", "--format", "{{.Status}}"};
}

Arguments imageCheck() { return {"images", "-q", image}; }

Arguments startExisting() { return {"start", container}; }

Arguments remove() { return {"rm", "-f", container}; }

Arguments pull() { return {"pull", image}; }

Arguments create() {
  return {"run", "-d",        "--name",    container,        "-p", "8001:8001", "-p", "8082:8082",
          "-p",  "8765:8765", "--restart", "unless-stopped", image};
}

Arguments stop() { return {"stop", container}; }

Arguments runningCheck() { return {"inspect", "-f", "{{.State.Running}}", container}; }

Arguments modelCheck() { return inShell("test -f " + quoted(modelPath)); }

Arguments modelDownload() {
  return inShell("mkdir -p /app/models && wget -O " + quoted(modelPath) + " " + quoted(modelUrl));
}

Arguments languageModelRestart() { return inShell("supervisorctl restart llm || true"); }

}  // namespace kestrin::docker
