#include "services/local/docker_tool.h"

#include <array>
#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

struct Distribution {
  const char* id;
  const char* command;
};

// Each family's own package. The daemon's socket belongs to the group "docker"; without it every
// call would need the superuser.
constexpr const char* aptCommand =
    "sudo apt install docker.io && sudo usermod -aG docker \"$USER\"";
constexpr const char* fedoraCommand =
    "sudo dnf install moby-engine && sudo systemctl enable --now docker && "
    "sudo usermod -aG docker \"$USER\"";
// The enterprise family has no docker package; its own tool needs no daemon and no group.
constexpr const char* enterpriseCommand = "sudo dnf install podman";
constexpr const char* pacmanCommand =
    "sudo pacman -S docker && sudo systemctl enable --now docker && "
    "sudo usermod -aG docker \"$USER\"";
constexpr const char* zypperCommand =
    "sudo zypper install docker && sudo systemctl enable --now docker && "
    "sudo usermod -aG docker \"$USER\"";
constexpr const char* apkCommand =
    "doas apk add docker && doas rc-update add docker && doas service docker start && "
    "doas addgroup \"$USER\" docker";

constexpr std::array<Distribution, 16> distributions{{{"debian", aptCommand},
                                                      {"ubuntu", aptCommand},
                                                      {"linuxmint", aptCommand},
                                                      {"pop", aptCommand},
                                                      {"fedora", fedoraCommand},
                                                      {"rhel", enterpriseCommand},
                                                      {"centos", enterpriseCommand},
                                                      {"rocky", enterpriseCommand},
                                                      {"almalinux", enterpriseCommand},
                                                      {"arch", pacmanCommand},
                                                      {"manjaro", pacmanCommand},
                                                      {"opensuse", zypperCommand},
                                                      {"opensuse-leap", zypperCommand},
                                                      {"opensuse-tumbleweed", zypperCommand},
                                                      {"suse", zypperCommand},
                                                      {"alpine", apkCommand}}};
/// By the package tool that is there.
constexpr std::array<Distribution, 5> packageTools{{{"apt", aptCommand},
                                                    {"dnf", enterpriseCommand},
                                                    {"pacman", pacmanCommand},
                                                    {"zypper", zypperCommand},
                                                    {"apk", apkCommand}}};
constexpr const char* otherCommand = "xdg-open https://docs.docker.com/engine/install/";

/// The value of a line `key=value`, without its quotes.
std::string valueOf(const std::string& osRelease, const std::string& key) {
  for (const std::string& line : text::split(osRelease, "\n")) {
    if (!line.starts_with(key + "=")) continue;
    std::string value = text::trim(line.substr(key.size() + 1));
    if (value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0]) {
      value = value.substr(1, value.size() - 2);
    }
    return value;
  }
  return {};
}

}  // namespace

std::optional<std::string> dockerInstallCommand(const std::string& osRelease) {
  // A derivative names its parents, the nearest first.
  const std::string ids = valueOf(osRelease, "ID") + " " + valueOf(osRelease, "ID_LIKE");
  for (const std::string& id : text::split(ids, " ")) {
    for (const auto& distribution : distributions) {
      if (id == distribution.id) return distribution.command;
    }
  }
  return {};
}

std::vector<std::string> DockerTool::usualPaths() {
  return {"/usr/bin/docker", "/usr/local/bin/docker", "/usr/bin/podman", "/opt/homebrew/bin/docker",
          "/Applications/Docker.app/Contents/Resources/bin/docker"};
}

DockerTool::DockerTool(Files& files, Processes& processes, std::vector<std::string> paths)
    : files_(files), processes_(processes), paths_(std::move(paths)) {}

std::optional<std::string> DockerTool::found() const {
  for (const std::string& path : paths_) {
    if (processes_.find(path)) return path;
  }
  for (const char* name : {"docker", "podman"}) {
    if (auto path = processes_.find(name)) return path;
  }
  return {};
}

std::string DockerTool::dockerPath() const { return found().value_or("docker"); }

std::string DockerTool::installCommand() const {
  for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
    const auto text = files_.read(path);
    if (!text) continue;
    if (const auto command = dockerInstallCommand(*text)) return *command;
  }
  for (const auto& [tool, command] : packageTools) {
    if (processes_.find(tool)) return command;
  }
  return otherCommand;
}

DockerTool::StartCommand DockerTool::startCommand() const {
  const auto unitIn = [this](const std::vector<std::string>& folders, const std::string& unit) {
    for (const std::string& folder : folders) {
      if (files_.exists(folder + "/" + unit)) return true;
    }
    return false;
  };
  if (unitIn({"/usr/lib/systemd/user", "/etc/systemd/user", files_.configFolder() + "/systemd/user",
              files_.dataFolder() + "/systemd/user"},
             "docker-desktop.service")) {
    return {.text = "systemctl --user start docker-desktop",
            .words = {"systemctl", "--user", "start", "docker-desktop"},
            .isDesktop = true};
  }
  const bool hasUnit = unitIn(
      {"/usr/lib/systemd/system", "/lib/systemd/system", "/etc/systemd/system"}, "docker.service");
  if (!hasUnit && files_.exists("/etc/init.d/docker")) return {.text = "sudo service docker start"};
  return {.text = "sudo systemctl start docker"};
}

}  // namespace kestrin
