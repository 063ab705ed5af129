#include "usermodel/preferences/update_check.h"

#include <algorithm>

#include "platform/json/json.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Takes the run of digits at the front, without leading zeros.
std::string_view takeNumber(std::string_view& text) {
  const size_t length = size_t(std::find_if_not(text.begin(), text.end(), isDigit) - text.begin());
  std::string_view number = text.substr(0, length);
  text.remove_prefix(length);
  while (number.size() > 1 && number[0] == '0') number.remove_prefix(1);
  return number;
}

}  // namespace

bool isNewerVersion(std::string_view version, std::string_view than) {
  while (!version.empty() && !than.empty()) {
    if (isDigit(version[0]) && isDigit(than[0])) {
      const auto a = takeNumber(version), b = takeNumber(than);
      if (a.size() != b.size()) return a.size() > b.size();
      if (a != b) return a > b;
      continue;
    }
    if (version[0] != than[0]) return version[0] > than[0];
    version.remove_prefix(1);
    than.remove_prefix(1);
  }
  return version.size() > than.size();
}

UpdateCheck::UpdateCheck(Http& http, const Endpoints& endpoints)
    : backend_(endpoints.backend),
      session_(http.makeSession({.requestTimeout = 15s, .maximumBodyBytes = 64 * 1024})) {}

void UpdateCheck::ask(std::function<void(std::optional<PublishedVersion>)> done) {
  session_->data({.url = backend_ + "/app/version"}, [done](Result<HttpResponse> response) {
    const auto reply = response ? Json::parse(response->body) : Result<Json>(Json());
    const auto version = reply ? reply->stringAt("version") : std::nullopt;
    if (!version) return done(std::nullopt);
    // What the network names is opened only as a web page.
    std::string url = reply->stringAt("downloadUrl", "");
    done(PublishedVersion{*version, isHttpUrl(url) ? url : ""});
  });
}

}  // namespace kestrin
