#pragma once

#include <memory>
#include <string>
#include <vector>

#include "desktop/driven_program.h"
#include "desktop/session.h"
#include "platform/accessibility_contract.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/atspi_bus.h"

namespace kestrin {

/// The engine and the real backend, shared by the tests of one program run.
class DesktopBackends {
 public:
  static DesktopBackends& shared();
  Dispatch& dispatch() { return *dispatch_; }
  Accessibility& accessibility() { return *accessibility_; }
  std::shared_ptr<atspi::AtspiBus> bus() { return bus_; }
  void close();

 private:
  DesktopBackends();
  std::unique_ptr<ThreadsDispatch> dispatch_;
  std::shared_ptr<atspi::AtspiBus> bus_;
  std::unique_ptr<Accessibility> accessibility_;
};

class RealWorld : public TextWorld {
 public:
  Dispatch& dispatch() override { return DesktopBackends::shared().dispatch(); }
  Accessibility& accessibility() override { return DesktopBackends::shared().accessibility(); }
  int pid() override { return pid_; }
  void endProgram() override { program->end(); }

  std::unique_ptr<DrivenProgram> program;

 protected:
  void start(const std::vector<std::string>& arguments) {
    program = std::make_unique<DrivenProgram>(arguments);
    pid_ = program->pid();
  }

 private:
  int pid_ = 0;  ///< kept after the program's end
};

/// The small Qt 6 program of these tests.
class QtWorld : public RealWorld {
 public:
  explicit QtWorld(std::string kind) : kind_(std::move(kind)) {}
  std::string role() override;
  void open(const std::string& text, TextRange selection) override;
  void userTypes(const std::string& text) override { program->ask("type " + text); }
  std::string text() override { return program->ask("text"); }

 private:
  std::string kind_;
};

/// An editor that is given a file: the user moves and types with keys, and saving shows the text.
class EditorWorld : public RealWorld {
 public:
  explicit EditorWorld(std::vector<std::string> command) : command_(std::move(command)) {}
  void open(const std::string& text, TextRange selection) override;
  void userTypes(const std::string& text) override { userTypesKeys(text); }
  std::string text() override;

 private:
  std::vector<std::string> command_;
  std::string path_;
};

/// How a page is shown: in a tab with its content on the accessibility bus, in a tab of a browser
/// as a user starts it (Chromium then hides the content), or in a window without tabs, as Electron
/// does.
enum class PageMode { tab, hidden, application };

/// A browser ("firefox", "chromium") on the pages in tests/desktop/pages. The address names the
/// field that gets the focus; the page's title, and so the window's, shows what is in it.
class BrowserWorld : public RealWorld {
 public:
  explicit BrowserWorld(std::string family) : family_(std::move(family)) {}
  void openPages(const std::vector<std::string>& pages);
  /// `field`: the id of one of the page's fields.
  void openField(const std::string& field, PageMode mode = PageMode::tab);
  void open(const std::string&, TextRange) override { openField("textarea"); }
  /// Types once the page's field is seen to take keys.
  void userTypes(const std::string& text) override;
  std::string text() override;

 private:
  std::vector<std::string> command(PageMode mode) const;
  std::string family_;
};

}  // namespace kestrin
