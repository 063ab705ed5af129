#include "identity/keychain_helper.h"

#include <utility>

namespace kestrin {

bool KeychainHelper::save(const Bytes& data, const std::string& key) {
  std::lock_guard lock(mutex_);
  return saveLocked(data, key);
}

bool KeychainHelper::saveLocked(const Bytes& data, const std::string& key) {
  cache_[key] = data;
  cacheLoaded_.insert(key);
  store_.remove(service, key);
  store_.remove(legacyService, key);
  const bool kept = store_.save(service, key, data).has_value() && store_.persistent();
  if (kept || std::exchange(warned_, true)) return kept;
  logger_.print(
      "⚠️ No secret store can be written: keys for services serve this run and are then "
      "forgotten");
  return false;
}

std::optional<Bytes> KeychainHelper::load(const std::string& key) {
  std::lock_guard lock(mutex_);
  if (cacheLoaded_.count(key) != 0) {
    const auto cached = cache_.find(key);
    return cached == cache_.end() ? std::nullopt : std::optional<Bytes>(cached->second);
  }
  for (const char* place : {service, legacyService}) {
    auto value = store_.load(place, key);
    if (!value) continue;
    cache_[key] = *value;
    cacheLoaded_.insert(key);
    if (place == legacyService) saveLocked(*value, key);
    return value;
  }
  cacheLoaded_.insert(key);
  return std::nullopt;
}

void KeychainHelper::remove(const std::string& key) {
  std::lock_guard lock(mutex_);
  cache_.erase(key);
  cacheLoaded_.erase(key);
  store_.remove(service, key);
  store_.remove(legacyService, key);
}

}  // namespace kestrin
