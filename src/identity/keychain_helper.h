#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "diagnostics/logger.h"
#include "platform/secret_store.h"

namespace kestrin {

/// Named secrets, cached for the run. An item found under the legacy service moves to the present
/// one when it is first read. Failures are not reported: a value that could not be stored serves
/// this run, and the log says so once. Thread-safe; a first read or a write may wait for the secret
/// service, for seconds where it hangs.
class KeychainHelper {
 public:
  static constexpr const char* service = "com.kestrin.kestrin";
  static constexpr const char* legacyService = "com.kestrin.nibo";

  KeychainHelper(SecretStore& store, Logger& logger) : store_(store), logger_(logger) {}

  /// True when it outlives this run.
  bool save(const Bytes& data, const std::string& key);
  std::optional<Bytes> load(const std::string& key);
  /// A later `load` asks the store again.
  void remove(const std::string& key);

 private:
  bool saveLocked(const Bytes& data, const std::string& key);

  SecretStore& store_;
  Logger& logger_;
  std::mutex mutex_;
  std::map<std::string, Bytes> cache_;
  std::set<std::string> cacheLoaded_;  ///< keys whose state is known, also that there is none
  bool warned_ = false;
};

}  // namespace kestrin
