#pragma once

#include <string>

#include "platform/files.h"
#include "platform/login_item.h"

namespace kestrin {

/// The autostart entry of the XDG rules, "autostart/kestrin.desktop" in the configuration folder.
class XdgLoginItem final : public LoginItem {
 public:
  /// `program`: full path of what the desktop starts, or a name that its PATH finds.
  XdgLoginItem(Files& files, std::string program) : files_(files), program_(std::move(program)) {}

  Status setEnabled(bool enabled) override;
  bool isEnabled() override;

 private:
  std::string path() { return files_.configFolder() + "/autostart/kestrin.desktop"; }

  Files& files_;
  const std::string program_;
};

}  // namespace kestrin
