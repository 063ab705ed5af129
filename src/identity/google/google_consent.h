#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kestrin {

/// Where the user consents: the address of the page, and the id under which this program is known
/// there. Constants of the build; the environment overrides them (KESTRIN_GOOGLE_AUTH_URL,
/// KESTRIN_GOOGLE_CLIENT_ID).
struct GoogleConsent {
  std::string url;
  std::string clientId;

  static GoogleConsent fromEnvironment();

  /// The page for these scopes; nothing without a client id or with an address that is none.
  std::optional<std::string> address(const std::vector<std::string>& scopes,
                                     const std::string& state) const;
};

/// Where the page sends the user back to. Nothing listens there: the redirect is caught before it
/// is followed.
inline constexpr const char* googleRedirectAddress = "http://127.0.0.1:9876/google-callback";

/// Any address on the redirect's host and port.
bool isOAuthCallback(const std::string& url);

/// What a redirect says; absent: the query has no such item.
struct GoogleCallback {
  std::optional<std::string> code, error, state;
};
GoogleCallback parseGoogleCallback(const std::string& url);

}  // namespace kestrin
