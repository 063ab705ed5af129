#include "services/local/docker_models.h"

#include <utility>

#include "platform/text/text.h"
#include "services/local/docker_commands.h"

namespace kestrin {
namespace {

constexpr std::chrono::seconds answerDeadline{30};
/// Silence of the download, not its length.
constexpr std::chrono::minutes downloadDeadline{5};
constexpr std::chrono::seconds restartDeadline{60};

/// The end of what a tool said: a download's error text holds its whole progress.
std::string lastLines(const std::string& said) {
  constexpr size_t most = 10;
  auto lines = text::split(text::trim(said), "\n");
  if (lines.size() > most) lines.erase(lines.begin(), lines.end() - most);
  return text::join(lines, "\n");
}

}  // namespace

void DockerModels::ifRunning(std::string otherwise, Completion completion,
                             std::function<void()> then) {
  runner_.run({.program = tool_.dockerPath(),
               .arguments = docker::runningCheck(),
               .deadline = answerDeadline},
              [otherwise = std::move(otherwise), completion = std::move(completion),
               then = std::move(then)](const CommandOutcome& outcome) {
                if (outcome.succeeded() && text::trim(outcome.output) == "true") return then();
                completion(false, otherwise);
              });
}

void DockerModels::ensureLocalLLMModelPresent(Completion completion) {
  const auto check = [this, completion] {
    runner_.run({.program = tool_.dockerPath(),
                 .arguments = docker::modelCheck(),
                 .deadline = answerDeadline},
                [completion](const CommandOutcome& outcome) {
                  if (outcome.succeeded())
                    return completion(true, "Local LLM model already present.");
                  completion(false,
                             "Local model not found. Click “Download model” to fetch "
                             "Qwen/Qwen2.5-3B-Instruct-GGUF (~2GB).");
                });
  };
  ifRunning(
      "Unified Docker container is not running. Start Docker service first, then download the "
      "local model.",
      completion, check);
}

void DockerModels::downloadLocalLLMModel(std::function<void(const std::string&)> onLine,
                                         Completion completion) {
  const auto restart = [this, completion] {
    // The model is there, whether its process came up or not.
    runner_.run({.program = tool_.dockerPath(),
                 .arguments = docker::languageModelRestart(),
                 .deadline = restartDeadline},
                [completion](const CommandOutcome&) {
                  completion(true, "Model downloaded and LLM restart triggered.");
                });
  };
  const auto download = [this, onLine, restart, completion] {
    onLine("⬇️ Downloading local LLM model (Qwen2.5-3B-Instruct-GGUF)...");
    runner_.run({.program = tool_.dockerPath(),
                 .arguments = docker::modelDownload(),
                 .deadline = downloadDeadline,
                 .onLine = onLine},
                [onLine, restart, completion](const CommandOutcome& outcome) {
                  if (!outcome.succeeded()) {
                    return completion(false,
                                      "Download failed: " + lastLines(outcome.errorText.empty()
                                                                          ? outcome.output
                                                                          : outcome.errorText));
                  }
                  onLine("✅ Model downloaded. Restarting LLM service…");
                  restart();
                });
  };
  ifRunning("Unified Docker container is not running. Start it first from Setup → Docker.",
            completion, download);
}

}  // namespace kestrin
