#include "identity/gemini_key_manager.h"

#include "platform/text/text.h"

namespace kestrin {
namespace {}  // namespace

std::string GeminiKeyManager::apiKey() {
  if (const auto stored = keychain_.load(keychainKey); stored && text::isValidUtf8(*stored)) {
    const std::string key = text::trim(*stored);
    if (!key.empty()) return key;
  }
  const std::string clear = text::trim(settings_.string(settingKey));
  if (clear.empty()) return {};
  // Without a place that lasts, the user's own copy is the only one there is.
  if (keychain_.save(clear, keychainKey)) settings_.remove(settingKey);
  return clear;
}

void GeminiKeyManager::save(const std::string& text) {
  const std::string key = text::trim(text);
  if (key.empty()) {
    keychain_.remove(keychainKey);
  } else {
    keychain_.save(key, keychainKey);
  }
  settings_.remove(settingKey);
}

}  // namespace kestrin
