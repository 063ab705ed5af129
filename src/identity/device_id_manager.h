#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "platform/files.h"
#include "platform/settings.h"

namespace kestrin {

/// The identity of this installation towards every service: "device_" and 16 hexadecimal digits,
/// kept in a file and in the settings, so that it outlives the loss of either. Thread-safe; the
/// first call reads the disk.
class DeviceIdManager {
 public:
  static constexpr const char* deviceIdKey = "com.kestrin.nibo.device_id";
  static constexpr const char* deviceIdFilename = "device_id.txt";
  static constexpr const char* appSupportDir = "com.kestrin.kestrin";
  static constexpr const char* legacyAppSupportDir = "com.kestrin.nibo";

  DeviceIdManager(Files& files, SettingsStore& settings, Random& random)
      : files_(files), settings_(settings), random_(random) {}

  /// Never empty; the same for the life of the process.
  std::string deviceId();

 private:
  /// Where the file belongs; copies it from the older folder when only that one has it.
  std::optional<std::string> filePath();
  std::string find();

  Files& files_;
  SettingsStore& settings_;
  Random& random_;
  std::mutex mutex_;
  std::string deviceId_;
};

}  // namespace kestrin
