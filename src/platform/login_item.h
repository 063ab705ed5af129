#pragma once

#include "platform/result.h"

namespace kestrin {

/// Whether the desktop starts the application when the user logs in. Blocks on the disk: not on the
/// main queue. Thread-safe. Errors: as the file system's, or domain "LoginItem".
class LoginItem {
 public:
  virtual ~LoginItem() = default;
  /// Registering twice, or unregistering what is not registered, succeeds.
  virtual Status setEnabled(bool enabled) = 0;
  /// False as well when the user switched the entry off in the desktop's own settings.
  virtual bool isEnabled() = 0;
};

}  // namespace kestrin
