#include "identity/device_id_manager.h"

#include "identity/account_file.h"
#include "platform/text/text.h"

namespace kestrin {

std::string DeviceIdManager::deviceId() {
  std::lock_guard lock(mutex_);
  if (deviceId_.empty()) deviceId_ = find();
  return deviceId_;
}

std::string DeviceIdManager::find() {
  const auto path = accountFilePath(files_, deviceIdFilename);
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
