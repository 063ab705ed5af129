#include <QApplication>
#include <QDir>
#include <QLibraryInfo>
#include <QSocketNotifier>
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "app/application.h"
#include "platform/linux/application_id.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/layer_surface.h"
#include "platform/linux/linux_platform.h"
#include "shell/call_windows.h"
#include "shell/design/accessible_scroll.h"
#include "shell/design/control_style.h"
#include "shell/live_feedback_widget.h"
#include "shell/loop_watch.h"
#include "shell/main_window.h"
#include "shell/overlay_widget.h"
#include "shell/process_log.h"
#include "shell/termination_signals.h"
#include "shell/tray_item.h"

namespace kestrin {
namespace {

void printLine(std::string_view line) { std::cerr << line << std::endl; }

bool compositorAnswers() {
  const auto layers = LayerSurface::offered(std::chrono::seconds(2));
  return layers || layers.error().code == LayerSurface::noLayers;
}

/// The toolkit ends the process when it finds no display; the key binding, the session bus and the
/// services work without one.
void chooseToolkitPlatform(Platform& platform, Logger& logger) {
  if (std::getenv("QT_QPA_PLATFORM") != nullptr) return;
  const bool wayland = displaySession() == DisplaySession::wayland;
  if (platform.workspace.screenSize()) {
    // Only there can a window come to the front when it is called, and stand at a place of its own.
    if (wayland) setenv("QT_QPA_PLATFORM", "xcb", 1);
    return;
  }
  if (wayland && compositorAnswers()) {
    const QDir platforms(QLibraryInfo::path(QLibraryInfo::PluginsPath) + "/platforms");
    if (!platforms.entryList({"libqwayland*"}).isEmpty()) {
      setenv("QT_QPA_PLATFORM", "wayland", 1);
      return;
    }
    logger.print("⚠️ Wayland: the toolkit's plugin is not installed (qt6-wayland)");
  }
  logger.print("⚠️ No display: running without overlay and tray");
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
}

/// The hosted calls' library, installed beside the program or lying in the build's folder.
std::string mediaLibrary() {
  const std::string path = programFolder() + "/../share/kestrin/twilio-video.min.js";
  return access(path.c_str(), R_OK) == 0 ? path : "";
}

/// Whoever starts the program without wanting to see it says so.
bool staysInTray(int argc, char** argv) {
  const std::vector<std::string_view> arguments(argv + 1, argv + argc);
  return std::find(arguments.begin(), arguments.end(), "--tray") != arguments.end();
}

int runDesktop(int argc, char** argv) {
  LinuxPlatform backends(printLine);
  auto& platform = backends.platform();
  const auto main = platform.dispatch.mainQueue();
  const SteadyTime started = platform.dispatch.clock().steadyNow();

  LinuxControlBus bus;
  Application application(platform, {.companionProgram = siblingProgram("kestrin-companion"),
                                     .mediaLibrary = mediaLibrary(),
                                     .staysInTray = staysInTray(argc, argv)});
  const auto serving = bus.serve(
      {.onCommand =
           [main, &application](ControlCommand command) {
             main->post([&application, command] { application.obey(command); });
           },
       .status = [&application] { return application.statusJson(); },
       .onCall =
           [main, &application](const std::string& what) {
             main->post([&application, what] { application.obeyCall(what); });
           },
       .log = [&application] { return logToJson(application.core().logger.getEntries()).dump(); }});
  if (!serving && serving.error().code == controlAlreadyRunning) {
    printLine("Kestrin is running already");
    const auto shown = bus.send(ControlCommand::show);
    backends.endJobs();
    return shown ? 0 : 1;
  }

  ProcessLog log(platform, application.core().logger, printLine);
  if (!serving) {
    application.core().logger.print("⚠️ Session bus: " + serving.error().description);
  }
  chooseToolkitPlatform(platform, application.core().logger);
  QApplication toolkit(argc, argv);
  QApplication::setStyle(new ControlStyle);
  installAccessibleScrollAreas();
  QApplication::setApplicationName("Kestrin");
  QApplication::setDesktopFileName(desktopApplicationId);
  QApplication::setQuitOnLastWindowClosed(false);
  LoopWatch watch(toolkit, platform.dispatch.clock(), application.core().logger, started);
  auto& loop = backends.mainLoop();
  QSocketNotifier wake(loop.wakeDescriptor(), QSocketNotifier::Read);
  QObject::connect(&wake, &QSocketNotifier::activated, [&loop] { loop.drain(); });
  // The services are stopped first; asked a second time, the user is in a hurry.
  const auto quit = [&application] { application.stop([] { QApplication::quit(); }); };
  const TerminationSignals signals(quit);

  int code = 0;
  {
    OverlayWidget overlay(application.overlay(), application.core().logger);
    CallBanner callBanner(application.calls().banner());
    InCallPanel inCallPanel(application.calls(), application.core().behavioralProfile);
    std::optional<LiveFeedbackWidget> liveFeedback;
    application.pages().onLiveAssist = [&liveFeedback](LiveAssist& live) {
      liveFeedback.emplace(live.feedbackWindow());
    };
    TrayItem tray(application, quit);
    MainWindow window(application);
    watch.watch(window);
    window.onPage = [&watch](const std::string& page) { watch.expectPage(page); };
    application.onChange = [&tray, &window] {
      tray.refresh();
      window.scheduleRefresh();
    };
    application.onShow = [&window] { window.bringToFront(); };
    application.onQuit = quit;
    application.onAttention = [&window] { QApplication::alert(&window); };
    application.onRing = [] { QApplication::beep(); };
    main->post([&application] { application.start(); });
    code = QApplication::exec();
    application.onChange = nullptr;
    application.onAttention = nullptr;
    application.pages().onLiveAssist = nullptr;
    application.stop();
  }
  bus.stop();
  log.stop();
  backends.endJobs();
  return code;
}

}  // namespace
}  // namespace kestrin

int main(int argc, char** argv) {
  kestrin::openClosedStreams();
  return kestrin::runDesktop(argc, argv);
}
