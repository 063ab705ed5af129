#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics/logger.h"
#include "platform/json/json.h"
#include "platform/lifetime.h"
#include "platform/platform.h"

namespace kestrin {

enum class SafetyTier { safe, elevated };
/// "safe", "elevated".
std::string_view safetyTierText(SafetyTier tier);
/// Anything but "elevated" is safe.
SafetyTier safetyTierFromText(std::string_view text);

/// Where actions hand over to services above the ports; both are called on the main queue.
struct ActionHandlers {
  std::function<void(std::string text)> typeText;
  std::function<void(Bytes wav)> playAudio;
};

/// Runs structured actions, {"type": "open_app", "app_name": "..."}: each becomes an effect on the
/// desktop. Failures are logged, nothing else. Call it on the main queue; the effects run one after
/// another on a queue of their own.
class ActionExecutor {
 public:
  ActionExecutor(Platform& platform, Logger& logger, ActionHandlers handlers);
  ~ActionExecutor();

  /// True when an effect was started: a known type, with its parameters, allowed in this tier.
  bool execute(const Json& action);

  /// Level of permission. The user raises it by hand for one run of the application; neither a
  /// stored setting nor a model does.
  SafetyTier currentTier = SafetyTier::safe;

 private:
  class Effects;
  std::shared_ptr<Effects> effects_;
  Logger& logger_;
  QueueRef queue_;
};

/// Names to try for an application that somebody asked for by `name`, best first: what the name is
/// known to stand for on Linux desktops, then the name itself.
std::vector<std::string> applicationCandidates(const std::string& name);

/// The port's name of a key ("enter": "Return"), and of modifiers ("cmd": "control"), without
/// doubles.
std::string keyNameFor(const std::string& key);
std::vector<std::string> modifierNamesFor(const std::vector<std::string>& modifiers);

}  // namespace kestrin
