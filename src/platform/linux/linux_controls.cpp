#include "platform/linux/linux_controls.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <systemd/sd-id128.h>
#include <unistd.h>

#include "platform/linux/dbus.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* domain = "SystemControls";
constexpr auto deadline = std::chrono::seconds(4);

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

Status LinuxControls::setDarkMode(bool on) {
  const auto run = [&](std::vector<std::string> arguments) {
    auto output =
        processes_.run({.program = "gsettings", .arguments = std::move(arguments)}, deadline);
    return output && output->exitCode == 0;
  };
  const std::string schema = "org.gnome.desktop.interface";
  if (run({"set", schema, "color-scheme", on ? "prefer-dark" : "default"})) return {};
  auto kde = processes_.run(
      {.program = "plasma-apply-colorscheme", .arguments = {on ? "BreezeDark" : "BreezeLight"}},
      deadline);
  if (kde && kde->exitCode == 0) return {};
  return fail(domain, 1, "This desktop has no colour scheme that can be switched from here");
}

Status LinuxControls::changeBrightness(int deltaPercent) {
  const std::string folder = "/sys/class/backlight";
  const auto devices = files_.list(folder);
  if (!devices || devices->empty())
    return fail(domain, 2, "No screen here has a brightness that can be set");
  const std::string device = devices->front().path.substr(folder.size() + 1);
  const auto maximum = readNumber(files_, folder + "/" + device + "/max_brightness");
  const auto now = readNumber(files_, folder + "/" + device + "/brightness");
  if (!maximum || !now || *maximum <= 0)
    return fail(domain, 2, "The screen's brightness cannot be read");
  // Never quite dark: a black screen looks broken.
  const int64_t lowest = std::max<int64_t>(1, *maximum / 100);
  const int64_t wanted = std::clamp(*now + *maximum * deltaPercent / 100, lowest, *maximum);
  auto bus = dbus::Connection::system();
  if (!bus) return fail(domain, 3, bus.error().description);
  auto set = (*bus)->call<void>({"org.freedesktop.login1", "/org/freedesktop/login1/session/auto",
                                 "org.freedesktop.login1.Session"},
                                "SetBrightness", deadline, std::string("backlight"), device,
                                static_cast<uint32_t>(wanted));
  if (!set) return fail(domain, 3, set.error().description);
  return {};
}

Status LinuxControls::suspend() {
  auto bus = dbus::Connection::system();
  if (!bus) return fail(domain, 3, bus.error().description);
  auto done = (*bus)->call<void>(
      {"org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager"},
      "Suspend", deadline, false);
  if (!done) return fail(domain, 3, done.error().description);
  return {};
}

Status LinuxControls::screenshot(const std::string& path) {
  struct Tool {
    const char* program;
    std::vector<std::string> before;
  };
  const std::array<Tool, 5> tools{{{"grim", {}},
                                   {"gnome-screenshot", {"-f"}},
                                   {"spectacle", {"-b", "-n", "-o"}},
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
