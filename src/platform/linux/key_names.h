#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kestrin {

/// A key that can be the hold key.
struct HoldKey {
  const char* name;
  int evdevCode;       ///< of the kernel; an X server's keycode is 8 more
  int x11Keycode;      ///< what an X server calls it
  const char* symbol;  ///< its key symbol, as desktops name keys in shortcuts
};

/// In the order in which they are offered, the default first.
const std::vector<HoldKey>& holdKeys();
/// By its name in the settings, in any case.
std::optional<HoldKey> holdKeyNamed(const std::string& name);

}  // namespace kestrin
