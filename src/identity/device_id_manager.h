#pragma once

#include <mutex>
#include <string>

#include "identity/account_file.h"
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
  static constexpr const char* appSupportDir = accountFolder;
  static constexpr const char* legacyAppSupportDir = legacyAccountFolder;

  DeviceIdManager(Files& files, SettingsStore& settings, Random& random)
      : files_(files), settings_(settings), random_(random) {}

  /// Never empty; the same for the life of the process.
  std::string deviceId();

 private:
  std::string find();

  Files& files_;
  SettingsStore& settings_;
  Random& random_;
  std::mutex mutex_;
  std::string deviceId_;
};

}  // namespace kestrin
