#include "identity/device_id_manager.h"

#include "platform/text/text.h"

namespace kestrin {

std::string DeviceIdManager::deviceId() {
  std::lock_guard lock(mutex_);
  if (deviceId_.empty()) deviceId_ = find();
  return deviceId_;
}

std::optional<std::string> DeviceIdManager::filePath() {
  const std::string base = files_.dataFolder();
  if (base.empty()) return std::nullopt;
  files_.createFolders(base + "/" + appSupportDir);
  const std::string legacy = base + "/" + legacyAppSupportDir + "/" + deviceIdFilename;
  const std::string current = base + "/" + appSupportDir + "/" + deviceIdFilename;
  if (files_.exists(legacy) && !files_.exists(current)) files_.copy(legacy, current);
  return current;
}

std::string DeviceIdManager::find() {
  const auto path = filePath();
  if (path) {
    if (const auto content = files_.read(*path); content && text::isValidUtf8(*content)) {
      std::string id = text::trim(*content);
      if (!id.empty()) return id;
    }
  }
  std::string id = settings_.string(deviceIdKey);
  if (id.empty()) {
    id = "device_" + text::replaceAll(text::lower(random_.uuid()), "-", "").substr(0, 16);
    settings_.set(deviceIdKey, id);
  }
  // An id that could be written to neither place still serves this run.
  if (path) files_.writeAtomic(*path, id);
  return id;
}

}  // namespace kestrin
