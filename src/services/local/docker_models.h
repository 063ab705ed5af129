#pragma once

#include <functional>
#include <string>

#include "services/local/command_runner.h"
#include "services/local/docker_tool.h"

namespace kestrin {

/// The local language model inside the running container. Main queue only; completions arrive
/// there with success and a text for the user.
class DockerModels {
 public:
  using Completion = std::function<void(bool, std::string)>;

  DockerModels(CommandRunner& runner, const DockerTool& tool) : runner_(runner), tool_(tool) {}

  void ensureLocalLLMModelPresent(Completion completion);
  /// `onLine` gets the download's progress.
  void downloadLocalLLMModel(std::function<void(const std::string&)> onLine, Completion completion);

 private:
  void ifRunning(std::string otherwise, Completion completion, std::function<void()> then);

  CommandRunner& runner_;
  const DockerTool& tool_;
};

}  // namespace kestrin
