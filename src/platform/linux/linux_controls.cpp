#include "platform/linux/linux_controls.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <systemd/sd-id128.h>
#include <unistd.h>

#include "platform/linux/screenshot_portal.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* domain = "SystemControls";
constexpr auto deadline = std::chrono::seconds(4);
const std::string backlights = "/sys/class/backlight";

/// Names this application in the derivation of the machine's identifier: the raw one must not leave
/// the machine.
constexpr sd_id128_t applicationId =
    SD_ID128_ARRAY(5d, 21, 0c, 7e, 9b, 44, 4f, 1a, 8e, 63, 2f, 90, b7, 15, ce, 08);

Result<int64_t> readNumber(Files& files, const std::string& path) {
  auto text = files.read(path);
  if (!text) return fail(text.error());
  return std::strtoll(text->c_str(), nullptr, 10);
}

}  // namespace

Result<LinuxControls::Bus> LinuxControls::systemBus() const {
  auto bus = dbus::Connection::system(buses_.system);
  if (!bus) return fail(domain, 3, bus.error().description);
  return bus;
}

/// A write is read back: without its settings service the tool forgets what it was told, and says
/// nothing.
bool LinuxControls::setGnomeScheme(bool on) {
  const auto gsettings = [&](std::vector<std::string> arguments) -> std::optional<std::string> {
    auto output =
        processes_.run({.program = "gsettings", .arguments = std::move(arguments)}, deadline);
    if (!output || output->exitCode != 0) return std::nullopt;
    return text::trim(output->standardOutput);
  };
  const std::string schema = "org.gnome.desktop.interface";
  const std::string scheme = on ? "prefer-dark" : "default";
  return gsettings({"set", schema, "color-scheme", scheme}) &&
         gsettings({"get", schema, "color-scheme"}) == "'" + scheme + "'";
}

bool LinuxControls::setKdeScheme(bool on) {
  const auto output = processes_.run(
      {.program = "plasma-apply-colorscheme", .arguments = {on ? "BreezeDark" : "BreezeLight"}},
      deadline);
  return output && output->exitCode == 0;
}

Status LinuxControls::setDarkMode(bool on) {
  // Each desktop accepts the other's setting without a word and shows nothing of it.
  const char* desktop = std::getenv("XDG_CURRENT_DESKTOP");
  const bool isKde = desktop && text::contains(text::upper(desktop), "KDE");
  if (isKde ? setKdeScheme(on) || setGnomeScheme(on) : setGnomeScheme(on) || setKdeScheme(on)) {
    return {};
  }
  return fail(domain, 1, "This desktop has no colour scheme that can be switched from here");
}

/// Where several devices drive one screen, the firmware's knows best and a raw register least.
Result<std::string> LinuxControls::backlightDevice() const {
  const auto devices = files_.list(backlights);
  std::string best;
  int bestRank = 0;
  for (const auto& device : devices.value_or(std::vector<FileInfo>{})) {
    const auto type = text::trim(files_.read(device.path + "/type").value_or(""));
    const int rank = type == "firmware" ? 3 : type == "platform" ? 2 : 1;
    if (rank > bestRank) {
      best = device.path.substr(device.path.rfind('/') + 1);
      bestRank = rank;
    }
  }
  if (best.empty()) return fail(domain, 2, "No screen here has a brightness that can be set");
  return best;
}

Status LinuxControls::changeBrightness(int deltaPercent) {
  const auto device = backlightDevice();
  if (!device) return fail(device.error());
  const auto maximum = readNumber(files_, backlights + "/" + *device + "/max_brightness");
  const auto now = readNumber(files_, backlights + "/" + *device + "/brightness");
  if (!maximum || !now || *maximum <= 0)
    return fail(domain, 2, "The screen's brightness cannot be read");
  // Never quite dark: a black screen looks broken.
  const int64_t lowest = std::max<int64_t>(1, *maximum / 100);
  const int64_t wanted = std::clamp(*now + *maximum * deltaPercent / 100, lowest, *maximum);
  auto bus = systemBus();
  if (!bus) return fail(bus.error());
  auto set = (*bus)->call<void>({"org.freedesktop.login1", "/org/freedesktop/login1/session/auto",
                                 "org.freedesktop.login1.Session"},
                                "SetBrightness", deadline, std::string("backlight"), *device,
                                static_cast<uint32_t>(wanted));
  if (!set) return fail(domain, 3, set.error().description);
  return {};
}

Status LinuxControls::suspend() {
  auto bus = systemBus();
  if (!bus) return fail(bus.error());
  auto done = (*bus)->call<void>(
      {"org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager"},
      "Suspend", deadline, false);
  if (!done) return fail(domain, 3, done.error().description);
  return {};
}

Result<bool> LinuxControls::portalScreenshot(const std::string& path) {
  auto bus = dbus::Connection::session(buses_.session);
  if (!bus) return false;
  const auto made = takePortalScreenshot(**bus);
  if (!made && made.error().code == screenshotDeclined) {
    return fail(domain, 4, made.error().description);
  }
  if (!made) return false;
  // The desktop chose a place of its own, perhaps on another file system.
  if (auto copied = files_.copy(*made, path); !copied) return fail(copied.error());
  files_.remove(*made);
  return true;
}

Status LinuxControls::screenshot(const std::string& path) {
  const auto folder = path.substr(0, path.rfind('/'));
  if (auto made = files_.createFolders(folder); !made) return made;
  const auto byPortal = portalScreenshot(path);
  if (!byPortal) return fail(byPortal.error());
  if (*byPortal) return {};
  struct Tool {
    const char* program;
    std::vector<std::string> before;
  };
  const std::array<Tool, 6> tools{{{"grim", {}},
                                   {"gnome-screenshot", {"-f"}},
                                   {"spectacle", {"-b", "-n", "-o"}},
                                   {"maim", {}},
                                   {"scrot", {}},
                                   {"import", {"-window", "root"}}}};
  for (const Tool& tool : tools) {
    if (!processes_.find(tool.program)) continue;
    std::vector<std::string> arguments = tool.before;
    arguments.push_back(path);
    auto output =
        processes_.run({.program = tool.program, .arguments = arguments}, std::chrono::seconds(10));
    if (output && output->exitCode == 0 && files_.exists(path)) return {};
  }
  return fail(domain, 4,
              "No screenshot tool works here; install one, such as grim (Wayland) or scrot (X11)");
}

Result<std::string> LinuxControls::machineId() {
  sd_id128_t id;
  if (sd_id128_get_machine_app_specific(applicationId, &id) < 0) {
    return fail(domain, 5, "This machine has no machine id");
  }
  std::array<char, SD_ID128_STRING_MAX> text{};
  return std::string(sd_id128_to_string(id, text.data()));
}

std::string LinuxControls::hostName() {
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0) return {};
  return name.data();
}

}  // namespace kestrin
