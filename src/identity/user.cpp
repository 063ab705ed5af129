#include "identity/user.h"

#include <array>
#include <utility>

namespace kestrin {
namespace {

constexpr std::array<std::pair<const char*, std::string User::*>, 5> fields{
    {{"localId", &User::localId},
     {"email", &User::email},
     {"idToken", &User::idToken},
     {"refreshToken", &User::refreshToken},
     {"expiresIn", &User::expiresIn}}};

}  // namespace

Json User::toJson() const {
  Json json = Json::object();
  for (const auto& [key, field] : fields) json.set(key, this->*field);
  return json;
}

std::optional<User> User::fromJson(const Json& json) {
  User user;
  for (const auto& [key, field] : fields) {
    auto value = json.stringAt(key);
    if (!value) return std::nullopt;
    user.*field = std::move(*value);
  }
  // An empty id would stand for everybody.
  if (user.localId.empty()) return std::nullopt;
  return user;
}

}  // namespace kestrin
