#pragma once

#include "platform/browser.h"
#include "platform/key_monitor.h"
#include "platform/pasteboard.h"
#include "platform/synthetic_input.h"
#include "platform/workspace.h"

namespace kestrin {

/// What a port is where this session has nothing to build it on: every call says so, with the mend,
/// and the program goes on without it.

class UnavailableKeyMonitor final : public KeyMonitor {
 public:
  explicit UnavailableKeyMonitor(std::string reason) : reason_(std::move(reason)) {}
  Status start(const std::string& key, std::function<void(KeyEdge)> onEdge) override;
  void stop() override {}
  std::vector<std::string> availableKeys() override { return {}; }

 private:
  std::string reason_;
};

class UnavailableInput final : public SyntheticInput {
 public:
  explicit UnavailableInput(std::string reason) : reason_(std::move(reason)) {}
  Status chord(const std::vector<std::string>& modifiers, const std::string& key) override;
  Result<Point> pointer() override;
  Status movePointer(Point to) override;
  Status buttonDown(int button) override;
  Status buttonUp(int button) override;

 private:
  std::string reason_;
};

class UnavailableWorkspace final : public Workspace {
 public:
  explicit UnavailableWorkspace(std::string reason) : reason_(std::move(reason)) {}
  std::optional<RunningApplication> frontmostApplication() override { return std::nullopt; }
  std::optional<RunningApplication> application(int) override { return std::nullopt; }
  std::vector<WindowInfo> windows() override { return {}; }
  std::optional<WindowInfo> activeWindow() override { return std::nullopt; }
  Status activateWindow(uint64_t id) override;
  Status activateApplication(int pid) override;
  Result<Point> screenSize() override;
  std::vector<InstalledApplication> installedApplications() override { return {}; }
  Status launch(const std::string& application) override;
  Status quitApplication(const std::string& application) override;
  Status open(const std::string& addressOrPath) override;

 private:
  std::string reason_;
};

class UnavailablePasteboard final : public Pasteboard {
 public:
  explicit UnavailablePasteboard(std::string reason) : reason_(std::move(reason)) {}
  std::optional<std::string> string() override { return std::nullopt; }
  Status setString(const std::string& text) override;
  Status clear() override;
  int fetches() override { return 0; }
  bool waitForFetch(int, Duration) override { return false; }
  bool isOwner() override { return false; }

 private:
  std::string reason_;
};

class UnavailableBrowser final : public Browser {
 public:
  explicit UnavailableBrowser(std::string reason) : reason_(std::move(reason)) {}
  Result<BrowserTab> activeTab(int pid) override;
  Result<std::string> pageText(int pid, size_t limit) override;
  Result<bool> selectTab(int pid, const std::string& urlToken, const std::string& title) override;

 private:
  std::string reason_;
};

}  // namespace kestrin
