#pragma once

#include <functional>
#include <memory>
#include <string>

#include "diagnostics/logger.h"
#include "platform/platform.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// How the local services stand, as whoever runs them sees it.
struct ServiceHostStatus {
  enum class State {
    stopped,    ///< the start value; after `stop`; a container that no longer answers
    starting,   ///< work is under way
    needsUser,  ///< goes on by itself once the user has done what the last prompt asks for
    running,    ///< recogniser and agent answer
    failed,     ///< a step failed; `start` tries again
  };
  State state = State::stopped;
  /// What a status line shows; the reason of a failure. Empty: nothing to say.
  std::string text;

  bool operator==(const ServiceHostStatus&) const = default;
};

/// Something that only the user can do or decide.
struct ServicePrompt {
  std::string title;
  std::string text;
  /// Label of the button that accepts; the other one ends the matter.
  std::string acceptLabel;
  std::string declineLabel;
  /// For the user's terminal: accepting copies it. Empty: nothing to copy.
  std::string command;
  /// What accepting does; always callable, on the main queue, once.
  std::function<void()> accept;
};

/// Each is optional and called on the main queue.
struct ServiceHostEvents {
  /// Every change of the status.
  std::function<void(const ServiceHostStatus&)> onStatus;
  /// Lines about the progress, for views that show them.
  std::function<void(const std::string&)> onProgress;
  std::function<void(const ServicePrompt&)> onPrompt;
};

/// Whoever runs the local services. Main queue only; no call waits. After the destructor no event
/// comes, and no child process of ours is left.
class ServiceHost {
 public:
  virtual ~ServiceHost() = default;
  /// Brings the services up. Callable again at any time: after a failure it tries anew, otherwise
  /// it only replaces the events or starts over; never are the services started twice.
  virtual void start(ServiceHostEvents events) = 0;
  /// Ends what `start` began; `completion` runs when that is over, after some seconds at most.
  virtual void stop(std::function<void()> completion = {}) = 0;
  virtual ServiceHostStatus status() const = 0;
};

/// Values of the setting `pref_serviceHost`: "companion", "container", "external".
enum class ServiceHostKind { companion, container, external };

/// The user's choice. A companion that could not serve the addresses in use is none: external.
ServiceHostKind chosenServiceHost(SettingsStore& settings, const Endpoints& endpoints);

/// The host that the setting chooses. `companionProgram`: path or name of the companion.
std::unique_ptr<ServiceHost> makeServiceHost(Platform& platform, Logger& logger,
                                             const Endpoints& endpoints,
                                             const std::string& companionProgram);

}  // namespace kestrin
