#include "diagnostics/debug_report.h"

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* version = "1.0.0";
constexpr const char* preferencePrefix = "pref_";
/// Where the key may lie in clear text until its first use moves it into the secret store.
constexpr const char* secretSetting = "pref_geminiApiKey";

std::string valueText(const std::optional<Json>& value) {
  if (!value || value->isNull()) return "nil";
  const auto string = value->asString();
  if (string) return string->empty() ? "nil" : *string;
  return value->dump();
}

std::string preferences(const SettingsStore& settings) {
  std::string out = "=== Preferences ===\n";
  for (const std::string& key : settings.keys()) {
    if (!key.starts_with(preferencePrefix) || key == secretSetting) continue;
    out += key + ": " + valueText(settings.get(key)) + "\n";
  }
  return out;
}

std::string without(std::string text, const std::string& secret) {
  return secret.empty() ? text : text::replaceAll(std::move(text), secret, "[removed]");
}

}  // namespace

std::string DebugReport::suggestedName(Date now) {
  return "kestrin_debug_logs_" + dates::format(now, "yyyy-MM-dd-HHmmss") + ".txt";
}

std::string DebugReport::text(Date now) const {
  std::string out = "Kestrin Debug Logs\nGenerated: " + dates::format(now, "yyyy-MM-dd HH:mm:ss") +
                    "\nVersion: " + version + "\n\n";
  if (const auto log = files.read(logFile)) {
    out += text::replaceInvalidUtf8(*log);
    if (out.back() != '\n') out += '\n';
    out += '\n';
  }
  out += preferences(settings);
  return without(without(std::move(out), secret), text::trim(settings.string(secretSetting)));
}

}  // namespace kestrin
