#include "identity/google/google_consent.h"

#include <cctype>
#include <cstdlib>

#include "platform/http.h"
#include "platform/text/text.h"

#ifndef KESTRIN_GOOGLE_CLIENT_ID
#define KESTRIN_GOOGLE_CLIENT_ID ""
#endif

namespace kestrin {
namespace {

constexpr std::string_view redirectHosts[] = {"http://127.0.0.1:9876", "http://localhost:9876"};

std::string fromVariable(const char* variable, const char* fallback) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0' ? value : fallback;
}

int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const int letter = std::tolower(static_cast<unsigned char>(c));
  return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

/// A value of a query; a broken escape stands for itself.
std::string decoded(std::string_view value) {
  std::string out;
  for (size_t i = 0; i < value.size(); ++i) {
    const bool escape = value[i] == '%' && i + 2 < value.size() && digit(value[i + 1]) >= 0 &&
                        digit(value[i + 2]) >= 0;
    if (escape) {
      out += static_cast<char>(digit(value[i + 1]) * 16 + digit(value[i + 2]));
      i += 2;
    } else {
      out += value[i] == '+' ? ' ' : value[i];
    }
  }
  return text::replaceInvalidUtf8(out);
}

}  // namespace

GoogleConsent GoogleConsent::fromEnvironment() {
  return {
      fromVariable("KESTRIN_GOOGLE_AUTH_URL", "https://accounts.google.com/o/oauth2/v2/auth"),
      fromVariable("KESTRIN_GOOGLE_CLIENT_ID", KESTRIN_GOOGLE_CLIENT_ID),
  };
}

std::optional<std::string> GoogleConsent::address(const std::vector<std::string>& scopes,
                                                  const std::string& state) const {
  if (clientId.empty() || !isHttpUrl(url)) return std::nullopt;
  return url + "?client_id=" + urlEncode(clientId) +
         "&redirect_uri=" + urlEncode(googleRedirectAddress) +
         "&response_type=code&scope=" + urlEncode(text::join(scopes, " ")) +
         "&access_type=offline&prompt=consent&state=" + urlEncode(state);
}

bool isOAuthCallback(const std::string& url) {
  for (const std::string_view host : redirectHosts) {
    // A further digit would be another port.
    if (url.starts_with(host) &&
        (url.size() == host.size() || text::contains("/?#", url.substr(host.size(), 1))))
      return true;
  }
  return false;
}

GoogleCallback parseGoogleCallback(const std::string& url) {
  GoogleCallback callback;
  const std::string address = url.substr(0, url.find('#'));
  const size_t query = address.find('?');
  if (query == std::string::npos) return callback;
  for (const std::string& item : text::split(address.substr(query + 1), "&")) {
    const size_t equals = item.find('=');
    const std::string name = item.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : decoded(item.substr(equals + 1));
    if (name == "code") callback.code = value;
    if (name == "error") callback.error = value;
    if (name == "state") callback.state = value;
  }
  return callback;
}

}  // namespace kestrin
