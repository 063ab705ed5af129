#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/dates/dates.h"
#include "platform/json/json.h"
#include "platform/settings.h"

namespace kestrin {

/// The Google account that the backend may read for the user. Tokens are the backend's alone.
struct GoogleAccount {
  std::string email;
  std::optional<std::string> name;
  std::optional<std::string> picture;  ///< address of an image
  Date linkedAt;
  std::vector<std::string> enabledScopes;

  /// One of the scopes speaks of it ("calendar", "gmail").
  bool mayUse(std::string_view service) const;
  Json toJson() const;
  static std::optional<GoogleAccount> fromJson(const Json& json);
  bool operator==(const GoogleAccount&) const = default;
};

/// The link as the settings hold it; what does not decode is none. Thread-safe.
std::optional<GoogleAccount> linkedGoogleAccount(const SettingsStore& settings);
/// Nothing removes the link. The settings' rows about mail and calendar follow.
void setLinkedGoogleAccount(SettingsStore& settings, const std::optional<GoogleAccount>& account);

}  // namespace kestrin
