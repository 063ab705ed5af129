#include "identity/google/google_account.h"

#include <algorithm>

namespace kestrin {
namespace {

constexpr const char* key = "linkedGoogleAccount";

}  // namespace

bool GoogleAccount::mayUse(std::string_view service) const {
  return std::any_of(enabledScopes.begin(), enabledScopes.end(), [&](const std::string& scope) {
    return scope.find(service) != std::string::npos;
  });
}

Json GoogleAccount::toJson() const {
  Json json = Json::object({{"email", email},
                            {"linkedAt", dates::iso8601(linkedAt)},
                            {"enabledScopes", Json::arrayOf(enabledScopes)}});
  if (name) json.set("name", *name);
  if (picture) json.set("picture", *picture);
  return json;
}

std::optional<GoogleAccount> GoogleAccount::fromJson(const Json& json) {
  const auto email = json.stringAt("email");
  const auto linkedAt = dates::parseIso8601(json.stringAt("linkedAt", ""));
  const Json* scopes = json.find("enabledScopes");
  if (!email || !linkedAt || !scopes || !scopes->isArray()) return std::nullopt;
  return GoogleAccount{*email, json.stringAt("name"), json.stringAt("picture"), *linkedAt,
                       json.stringsAt("enabledScopes")};
}

std::optional<GoogleAccount> linkedGoogleAccount(const SettingsStore& settings) {
  const auto stored = settings.get(key);
  return stored ? GoogleAccount::fromJson(*stored) : std::nullopt;
}

void setLinkedGoogleAccount(SettingsStore& settings, const std::optional<GoogleAccount>& account) {
  if (account) {
    settings.set(key, account->toJson());
  } else {
    settings.remove(key);
  }
  settings.set("hasGmailAccess", account && account->mayUse("gmail"));
  settings.set("hasCalendarAccess", account && account->mayUse("calendar"));
}

}  // namespace kestrin
