#include <iostream>
#include <optional>
#include <unistd.h>

#include "app/terminal_services.h"
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/line_editor.h"
#include "cli/live_printer.h"
#include "cli/printable.h"
#include "diagnostics/terminal/terminal_view.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

/// The escape sequence of a colour on a terminal; nothing elsewhere.
const char* colorCode(TerminalColor color) {
  switch (color) {
    case TerminalColor::error:
      return "\033[31m";
    case TerminalColor::success:
      return "\033[32m";
    case TerminalColor::warning:
      return "\033[33m";
    case TerminalColor::info:
      return "\033[36m";
    case TerminalColor::heading:
      return "\033[1;34m";
    case TerminalColor::prompt:
    case TerminalColor::command:
      return "\033[1m";
    case TerminalColor::muted:
      return "\033[2m";
    case TerminalColor::normal:
      break;
  }
  return "";
}

/// The view over the process's own streams. Main queue only.
class Session {
 public:
  Session(LinuxPlatform& backends, CoreServices& core)
      : backends_(backends),
        home_(core, nullptr, "the hold key", {}),
        view_(servicesWithTheApplicationsLog(core)),
        colored_(isatty(STDOUT_FILENO) != 0),
        interrupt_(core.platform.dispatch, [this] { view_.stopProcess(); }) {
    shown_ = view_.output().size();
    view_.onChange = [this] { show(); };
  }

  void showWelcome() {
    shown_ = 0;
    show();
  }
  /// Returns when the line's output is whole; whether it holds no error.
  bool run(const std::string& line) {
    // Before the line, since asking waits: until the application answers or 2 s.
    const auto log = LinuxControlBus().log();
    log_ = log ? std::optional(*log) : std::nullopt;
    const auto main = backends_.platform().dispatch.mainQueue();
    main->post([this, line] {
      view_.processCommand(line);
      waiting_ = true;
      show();
    });
    backends_.mainLoop().run();
    waiting_ = false;
    return !failed_;
  }

 private:
  /// Those of this process, with the running application's log in place of its own.
  TerminalServices servicesWithTheApplicationsLog(CoreServices& core) {
    TerminalServices services = terminalServices(core, home_);
    services.log = [this, own = std::move(services.log)] {
      return log_ ? logFromJson(Json::parse(*log_).value_or(Json())) : own();
    };
    return services;
  }
  void show() {
    if (view_.clearings() != clearings_) {
      clearings_ = view_.clearings();
      shown_ = 0;
      if (colored_) std::cout << "\033[2J\033[H";
    }
    for (; shown_ < view_.output().size(); ++shown_) {
      const TerminalSpan& span = view_.output()[shown_];
      failed_ = failed_ || span.color == TerminalColor::error;
      const char* code = colored_ ? colorCode(span.color) : "";
      std::cout << code << printable(span.text) << (*code ? "\033[0m" : "");
    }
    std::cout << std::flush;
    if (waiting_ && view_.pending() == 0) backends_.mainLoop().quit(0);
  }

  LinuxPlatform& backends_;
  std::optional<std::string> log_;  ///< the running application's; nothing without one
  Home home_;
  TerminalView view_;
  const bool colored_;
  Interrupt interrupt_;
  size_t shown_ = 0;
  int clearings_ = 0;
  bool waiting_ = false, failed_ = false;
};

}  // namespace

int terminal(const TerminalOptions& options) {
  LinuxPlatform backends(tell);
  CoreServices core(backends.platform(), Endpoints::fromEnvironment());
  int status = done;
  {
    Session session(backends, core);
    if (options.line) {
      status = session.run(*options.line) ? done : failed;
    } else {
      session.showWelcome();
      LineEditor editor(std::string(TerminalView::prompt) + " ", terminalCommands());
      while (const auto line = editor.read()) session.run(*line);
    }
  }
  backends.endJobs();
  return status;
}

}  // namespace kestrin::cli
