#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/audio.h"

namespace kestrin {

enum class DeviceScope { input, output };

/// Finds sound devices by the name that people read. Blocks as `Audio` does.
class AudioDeviceManager {
 public:
  explicit AudioDeviceManager(Audio& audio) : audio_(audio) {}

  /// Empty when there is no sound server.
  std::vector<std::string> allDeviceIDs() {
    std::vector<std::string> ids;
    for (const AudioDevice& device : audio_.inputDevices().value_or(std::vector<AudioDevice>{}))
      ids.push_back(device.id);
    return ids;
  }

  /// The first device of this name.
  std::optional<std::string> findDeviceID(const std::string& named,
                                          DeviceScope scope = DeviceScope::input) {
    const auto devices =
        scope == DeviceScope::input ? audio_.inputDevices() : audio_.outputDevices();
    for (const AudioDevice& device : devices.value_or(std::vector<AudioDevice>{}))
      if (device.name == named) return device.id;
    return std::nullopt;
  }

 private:
  Audio& audio_;
};

}  // namespace kestrin
