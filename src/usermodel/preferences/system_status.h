#pragma once

#include <functional>
#include <memory>
#include <string>

#include "identity/device_id_manager.h"
#include "platform/accessibility.h"
#include "platform/audio.h"
#include "platform/http.h"
#include "platform/workspace.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// What the permission rows say.
struct PermissionStates {
  std::string microphone = "Unknown";
  std::string screenRecording = "Not granted";
  std::string accessibility = "Not granted";
};

/// Whether this session lets us hear, see and reach other programs. Blocking.
PermissionStates permissionStates(Audio& audio, Workspace& workspace, Accessibility& accessibility);

/// Opens the desktop's settings, on whichever desktop this is. Blocking.
Status openSystemSettings(Workspace& workspace);

/// Which outside account the backend knows of (`GET /user/profile/ID`).
class AccountStatus {
 public:
  AccountStatus(Http& http, const Endpoints& endpoints, DeviceIdManager& deviceId);

  /// "Connected as ..." or "Not connected", on the session's queue. Reads the device's identity:
  /// not on the main queue.
  void ask(std::function<void(std::string)> done);

 private:
  const std::string backend_;
  DeviceIdManager& deviceId_;
  const std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin
