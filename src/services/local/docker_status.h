#pragma once

#include <string>

#include "services/local/service_host.h"

namespace kestrin {

/// How far the container's supervisor is.
struct DockerASRStatus {
  enum class State {
    error,              ///< a step failed; `text` is shown to the user
    notInstalled,       ///< no tool was found
    installingDocker,   ///< the user was given the command; we wait for its effect
    dockerStopped,      ///< the tool exists but the daemon does not answer
    imagePulling,       ///< the image is being downloaded
    containerStarting,  ///< a container is being created or started
    running,            ///< both health endpoints answered, or the container was up already
    stopped,            ///< the start value; after `stopService`; after a failed periodic check
  };
  State state = State::stopped;
  std::string text = {};

  static DockerASRStatus error(std::string text) { return {State::error, std::move(text)}; }
  /// With the words of the status line.
  ServiceHostStatus hostStatus() const;

  bool operator==(const DockerASRStatus&) const = default;
};

}  // namespace kestrin
