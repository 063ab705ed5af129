#include "services/local/docker_status.h"

namespace kestrin {

ServiceHostStatus DockerASRStatus::hostStatus() const {
  using Host = ServiceHostStatus::State;
  switch (state) {
    case State::error:
      return {Host::failed, text};
    case State::notInstalled:
    case State::installingDocker:
      return {Host::needsUser, "📦 Docker not found — installing automatically..."};
    case State::dockerStopped:
      return {Host::needsUser, "🐳 Starting Docker Desktop..."};
    case State::imagePulling:
      return {Host::starting, text.empty() ? "Downloading AI models..." : text};
    case State::containerStarting:
      return {Host::starting, "Initializing AI models..."};
    case State::running:
      return {Host::running, ""};
    case State::stopped:
      break;
  }
  return {Host::stopped, ""};
}

}  // namespace kestrin
