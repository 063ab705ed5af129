#include "platform/linux/linux_platform.h"

#include <array>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

#include "platform/linux/atspi_accessibility.h"
#include "platform/linux/atspi_browser.h"
#include "platform/linux/atspi_bus.h"
#include "platform/linux/curl_http.h"
#include "platform/linux/desktop_notifications.h"
#include "platform/linux/eds_calendars.h"
#include "platform/linux/espeak_speech.h"
#include "platform/linux/evdev_key_monitor.h"
#include "platform/linux/json_settings.h"
#include "platform/linux/linux_controls.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/linux_place.h"
#include "platform/linux/portal_key_monitor.h"
#include "platform/linux/posix_processes.h"
#include "platform/linux/pulse_audio.h"
#include "platform/linux/secret_service.h"
#include "platform/linux/web_process.h"
#include "platform/linux/x11_key_monitor.h"
#include "platform/linux/x11_pasteboard.h"
#include "platform/linux/x11_synthetic_input.h"
#include "platform/linux/x11_workspace.h"
#include "platform/linux/xdg_login_item.h"
#include "platform/unavailable.h"

namespace kestrin {
namespace {

constexpr const char* noDisplay = "There is no display in this session (DISPLAY is not set)";
constexpr const char* noXWayland =
    "This Wayland session has no XWayland (DISPLAY is not set), which this needs";

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

/// evdev sees every key of every program: only for those who chose it.
std::unique_ptr<KeyMonitor> chooseKeyMonitor(const SettingsStore& settings,
                                             const std::shared_ptr<SyntheticEdges>& edges) {
  if (settings.string("pref_keySource") == "evdev") return std::make_unique<EvdevKeyMonitor>();
  switch (displaySession()) {
    case DisplaySession::x11:
      return std::make_unique<X11KeyMonitor>(edges);
    case DisplaySession::wayland:
      return std::make_unique<PortalKeyMonitor>();
    case DisplaySession::none:
      break;
  }
  return std::make_unique<UnavailableKeyMonitor>(noDisplay);
}

}  // namespace

DisplaySession displaySession() {
  if (isSet("WAYLAND_DISPLAY")) return DisplaySession::wayland;
  return isSet("DISPLAY") ? DisplaySession::x11 : DisplaySession::none;
}

std::string programFolder() {
  std::array<char, 4096> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0) return {};
  const std::string_view whole(path.data(), static_cast<size_t>(length));
  return std::string(whole.substr(0, whole.rfind('/')));
}

std::string siblingProgram(const std::string& name) {
  const auto beside = programFolder() + "/" + name;
  return access(beside.c_str(), X_OK) == 0 ? beside : name;
}

struct LinuxPlatform::Backends {
  explicit Backends(std::function<void(std::string)> warn)
      : settings(dispatch->clock(), files.configFolder() + "/kestrin/settings.json",
                 std::move(warn)) {
    const bool hasX = isSet("DISPLAY");
    const char* missing = isSet("WAYLAND_DISPLAY") ? noXWayland : noDisplay;
    const auto edges = std::make_shared<SyntheticEdges>();
    keyMonitor = chooseKeyMonitor(settings, edges);
    if (hasX) {
      input = std::make_unique<X11SyntheticInput>(edges);
      workspace = std::make_unique<X11Workspace>();
      pasteboard = std::make_unique<X11Pasteboard>();
    } else {
      input = std::make_unique<UnavailableInput>(missing);
      workspace = std::make_unique<UnavailableWorkspace>(missing);
      pasteboard = std::make_unique<UnavailablePasteboard>(missing);
    }
  }

  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  LinuxFiles files;
  LinuxRandom random;
  JsonSettings settings;
  NotificationCenter notifications;
  std::unique_ptr<Processes> processes = makePosixProcesses();
  std::unique_ptr<Http> http = makeCurlHttp(*dispatch);
  std::shared_ptr<atspi::AtspiBus> accessibilityBus = std::make_shared<atspi::AtspiBus>();
  std::unique_ptr<Accessibility> accessibility =
      makeAtspiAccessibility(*dispatch, accessibilityBus);
  std::unique_ptr<KeyMonitor> keyMonitor;
  std::unique_ptr<SyntheticInput> input;
  std::unique_ptr<Workspace> workspace;
  std::unique_ptr<Pasteboard> pasteboard;
  std::unique_ptr<Audio> audio = makePulseAudio();
  std::unique_ptr<Browser> browser = makeAtspiBrowser(accessibilityBus);
  SecretService secrets;
  DesktopNotifications userNotifications;
  LinuxControls controls{files, *processes};
  EspeakSpeech speech{*processes};
  XdgLoginItem loginItem{files, siblingProgram("kestrin-desktop")};
  EdsCalendars calendars{files};
  LinuxPlaceService place{files, [] { return dbus::Connection::system(); }, dates::systemTimeZone};
  std::unique_ptr<WebPages> webPages =
      makeWebPages(*dispatch, *processes, siblingProgram("kestrin-web"));
  std::unique_ptr<Platform> platform;
};

LinuxPlatform::LinuxPlatform(std::function<void(std::string)> warn)
    : backends_(std::make_unique<Backends>(std::move(warn))) {
  auto& b = *backends_;
  b.platform.reset(new Platform{*b.dispatch, *b.http,          b.files,      b.random,
                                b.settings,  b.notifications,  *b.processes, *b.keyMonitor,
                                *b.input,    *b.accessibility, *b.workspace, *b.pasteboard,
                                *b.audio,    *b.browser,       b.secrets,    b.userNotifications,
                                b.controls,  b.speech,         b.loginItem,  b.place,
                                b.calendars, *b.webPages});
}

LinuxPlatform::~LinuxPlatform() { endJobs(); }

Platform& LinuxPlatform::platform() { return *backends_->platform; }

MainLoop& LinuxPlatform::mainLoop() { return backends_->dispatch->mainLoop(); }

void LinuxPlatform::endJobs() { backends_->dispatch->shutDown(); }

}  // namespace kestrin
