#pragma once

#include <string>

#include "identity/keychain_helper.h"
#include "platform/settings.h"

namespace kestrin {

/// The user's key for the hosted language model, in the secret store. Thread-safe; blocks as
/// KeychainHelper does.
class GeminiKeyManager {
 public:
  static constexpr const char* keychainKey = "com.kestrin.nibo.gemini_api_key";
  /// Under which settings of older versions hold it, and the settings window shows it.
  static constexpr const char* settingKey = "pref_geminiApiKey";

  GeminiKeyManager(KeychainHelper& keychain, SettingsStore& settings)
      : keychain_(keychain), settings_(settings) {}

  /// Empty when there is no key. A key that older settings hold in the clear moves to the store.
  std::string apiKey();
  /// An empty text removes the key.
  void save(const std::string& text);

 private:
  KeychainHelper& keychain_;
  SettingsStore& settings_;
};

}  // namespace kestrin
