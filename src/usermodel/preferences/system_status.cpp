#include "usermodel/preferences/system_status.h"

#include "platform/json/json.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

constexpr const char* granted = "Granted ✓";

std::string microphoneState(Audio& audio) {
  const auto devices = audio.inputDevices();
  if (devices) return devices->empty() ? "Unknown" : granted;
  return devices.error().code == audioRefused ? "Denied ✗" : "Unknown";
}

/// The settings programs of the desktops, the more particular first.
constexpr const char* settingsPrograms[] = {
    "gnome-control-center",   "systemsettings",         "cinnamon-settings", "mate-control-center",
    "xfce4-settings-manager", "io.elementary.settings", "lxqt-config"};

}  // namespace

PermissionStates permissionStates(Audio& audio, Workspace& workspace,
                                  Accessibility& accessibility) {
  PermissionStates states;
  states.microphone = microphoneState(audio);
  if (workspace.screenSize()) states.screenRecording = granted;
  if (accessibility.available()) states.accessibility = granted;
  return states;
}

Status openSystemSettings(Workspace& workspace) {
  Status last = fail("Preferences", 3, "This desktop has no settings program");
  for (const char* program : settingsPrograms) {
    if (last = workspace.launch(program); last) break;
  }
  return last;
}

AccountStatus::AccountStatus(Http& http, const Endpoints& endpoints, DeviceIdManager& deviceId)
    : backend_(endpoints.backend),
      deviceId_(deviceId),
      session_(http.makeSession({.requestTimeout = 15s, .maximumBodyBytes = 1024 * 1024})) {}

void AccountStatus::ask(std::function<void(std::string)> done) {
  const std::string id = deviceId_.deviceId();
  HttpRequest request{.url = backend_ + "/user/profile/" + urlEncode(id)};
  request.setHeader("X-Device-Id", id);
  session_->data(std::move(request), [done](Result<HttpResponse> response) {
    const auto reply = response ? Json::parse(response->body) : Result<Json>(Json());
    const Json* user = reply ? reply->objectAt("user") : nullptr;
    const std::string email = user ? user->stringAt("email", "") : "";
    done(email.empty() ? "Not connected" : "Connected as " + email);
  });
}

}  // namespace kestrin
