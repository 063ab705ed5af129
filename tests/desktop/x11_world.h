#pragma once

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include "desktop/session.h"
#include "platform/desktop_contract.h"
#include "platform/linux/x11_key_monitor.h"
#include "platform/linux/x11_pasteboard.h"
#include "platform/linux/x11_synthetic_input.h"
#include "platform/linux/x11_workspace.h"

namespace kestrin {

/// Starts a program in the background and ends it with its owner.
class BackgroundProgram {
 public:
  explicit BackgroundProgram(const std::string& line);
  ~BackgroundProgram() { end(); }
  BackgroundProgram(const BackgroundProgram&) = delete;
  int pid() const { return pid_; }
  void end();

 private:
  pid_t pid_;
  bool running_ = true;
};

/// The real X session of the tests: two editors, and a user at the keyboard.
class X11World : public DesktopWorld {
 public:
  KeyMonitor& keys() override { return keys_; }
  SyntheticInput& input() override { return input_; }
  Pasteboard& pasteboard() override { return pasteboard_; }
  Workspace& workspace() override { return workspace_; }

  void openPrograms() override;
  int editorPid() override { return editor_->pid(); }
  int otherPid() override { return other_->pid(); }
  std::string editorText() override;
  void endEditor() override { editor_->end(); }

  void userPressesHoldKey() override { shell("xdotool keydown 105"); }
  void userReleasesHoldKey() override { shell("xdotool keyup 105"); }
  void userTapsAnotherKey() override { shell("xdotool key 38"); }
  void userHolds(const std::string& modifier) override { hold(modifier, "keydown"); }
  void userLetsGo(const std::string& modifier) override { hold(modifier, "keyup"); }
  bool isHeld(const std::string& modifier) override;
  void userCopies(const std::string& text) override;
  std::string otherProgramFetches() override;
  void pause() override;

 private:
  static void hold(const std::string& modifier, const std::string& verb);

  std::shared_ptr<SyntheticEdges> edges_ = std::make_shared<SyntheticEdges>();
  X11KeyMonitor keys_{edges_};
  X11SyntheticInput input_{edges_};
  X11Pasteboard pasteboard_;
  X11Workspace workspace_;
  std::unique_ptr<BackgroundProgram> editor_, other_;
};

}  // namespace kestrin
