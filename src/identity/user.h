#pragma once

#include <optional>
#include <string>

#include "platform/json/json.h"

namespace kestrin {

/// A signed-in account, as the sign-in service describes it and as it is stored.
struct User {
  std::string localId;  ///< never empty
  std::string email;
  std::string idToken;
  std::string refreshToken;
  std::string expiresIn;  ///< seconds, as the service sends it

  Json toJson() const;
  /// Strict: all five must be there as texts.
  static std::optional<User> fromJson(const Json& json);
  bool operator==(const User&) const = default;
};

}  // namespace kestrin
