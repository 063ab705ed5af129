#pragma once

#include <memory>

#include "platform/linux/desktop_entries.h"
#include "platform/linux/x11_connection.h"
#include "platform/workspace.h"

namespace kestrin {

/// Windows through the window manager's EWMH properties, programs through their desktop entries.
/// Every call has a connection of its own, so calls run side by side and a server that comes back
/// is found again.
class X11Workspace final : public Workspace {
 public:
  /// `display` empty: the one of the environment.
  explicit X11Workspace(std::string display = {});

  std::optional<RunningApplication> frontmostApplication() override;
  std::optional<RunningApplication> application(int pid) override;
  std::vector<WindowInfo> windows() override;
  std::optional<WindowInfo> activeWindow() override;
  Status activateWindow(uint64_t id) override;
  Status activateApplication(int pid) override;
  Result<Point> screenSize() override;

  std::vector<InstalledApplication> installedApplications() override;
  Status launch(const std::string& application) override;
  Status quitApplication(const std::string& application) override;
  Status open(const std::string& addressOrPath) override;

 private:
  std::optional<RunningApplication> applicationOf(X11Connection& x, xcb_window_t window);
  Status activate(X11Connection& x, xcb_window_t window);

  std::string display_;
  DesktopEntries entries_;
};

}  // namespace kestrin
