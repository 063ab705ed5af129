#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "platform/secret_store.h"

namespace kestrin {

/// Named secrets, cached for the run. An item found under the legacy service moves to the present
/// one when it is first read. Thread-safe; a first read or a write may wait for the secret service
/// (4 s at most).
class KeychainHelper {
 public:
  static constexpr const char* service = "com.kestrin.kestrin";
  static constexpr const char* legacyService = "com.kestrin.nibo";

  explicit KeychainHelper(SecretStore& store) : store_(store) {}

  void save(const Bytes& data, const std::string& key);
  std::optional<Bytes> load(const std::string& key);
  /// A later `load` asks the store again.
  void remove(const std::string& key);

 private:
  void saveLocked(const Bytes& data, const std::string& key);

  SecretStore& store_;
  std::mutex mutex_;
  std::map<std::string, Bytes> cache_;
  std::set<std::string> cacheLoaded_;  ///< keys whose state is known, also that there is none
};

}  // namespace kestrin
