#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/result.h"

namespace kestrin {

enum class KeyEdge {
  holdDown,  ///< the hold key went down
  holdUp,    ///< the hold key came up
  otherKey,  ///< another key went down while the hold key is held
};

/// Watches the hold key system-wide without swallowing it. Edges made by our own synthetic input
/// are left out, and so is key repeat. A lost connection to the display is made again by itself.
class KeyMonitor {
 public:
  virtual ~KeyMonitor() = default;
  /// `key` is a key's name as in the settings ("Right Ctrl", "fn", "F13"). `onEdge` may come on any
  /// thread: post to the main queue. Fails when the key cannot be watched here (domain
  /// "KeyMonitor", the description says why and what would mend it).
  virtual Status start(const std::string& key, std::function<void(KeyEdge)> onEdge) = 0;
  virtual void stop() = 0;
  /// Names that can be chosen on this machine, the default first.
  virtual std::vector<std::string> availableKeys() = 0;
};

}  // namespace kestrin
