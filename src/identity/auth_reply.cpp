#include "identity/auth_reply.h"

#include <array>
#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* domain = "Auth";

constexpr std::array<std::pair<std::string_view, const char*>, 9> messages{{
    {"EMAIL_NOT_FOUND", "Email not found"},
    {"INVALID_PASSWORD", "Invalid password"},
    {"INVALID_LOGIN_CREDENTIALS", "Invalid email or password"},
    {"USER_DISABLED", "Account disabled"},
    {"EMAIL_EXISTS", "Email already exists"},
    {"WEAK_PASSWORD", "Password too weak (min 6 chars)"},
    {"INVALID_EMAIL", "Invalid email format"},
    {"API_KEY_INVALID", "Invalid Firebase API key"},
    {"CONFIGURATION_NOT_FOUND", "Enable Email/Password auth in Firebase Console"},
}};

}  // namespace

std::string friendlyErrorMessage(std::string_view message) {
  const std::string_view code = message.substr(0, message.find_first_of(" :"));
  for (const auto& [known, friendly] : messages) {
    if (code == known) return friendly;
  }
  return std::string(message);
}

Result<User> parseAuthReply(const HttpResponse& response) {
  const bool succeeded = response.status >= 200 && response.status < 300;
  const auto json = Json::parse(response.body);
  if (const Json* error = json ? json->objectAt("error") : nullptr) {
    const std::string message = text::trim(error->stringAt("message", ""));
    if (!message.empty()) return fail(domain, authRefused, friendlyErrorMessage(message));
  }
  if (!succeeded) {
    return fail(domain, authStatus,
                "The sign-in service answered with status " + std::to_string(response.status));
  }
  if (response.body.empty()) return fail(domain, authNoData, "No data");
  if (!json || !json->isObject()) {
    return fail(domain, authUnreadable, "The sign-in service sent an unreadable answer");
  }
  User user;
  user.localId = json->stringAt("localId", "");
  user.email = json->stringAt("email", "");
  user.idToken = json->stringAt("idToken", "");
  user.refreshToken = json->stringAt("refreshToken", "");
  user.expiresIn = json->stringAt("expiresIn", "");
  // Without these two nothing that is asked in the account's name could be answered.
  if (user.localId.empty() || user.idToken.empty()) {
    return fail(domain, authUnreadable, "The sign-in service sent an incomplete answer");
  }
  return user;
}

}  // namespace kestrin
