#include "platform/http.h"

#include <algorithm>
#include <cctype>

namespace kestrin {
namespace {

bool sameName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
    return std::tolower(x) == std::tolower(y);
  });
}

}  // namespace

void HttpRequest::setHeader(std::string_view name, std::string_view value) {
  for (auto& header : headers) {
    if (sameName(header.first, name)) {
      header.second = value;
      return;
    }
  }
  headers.emplace_back(name, value);
}

std::string HttpResponse::header(std::string_view name) const {
  for (const auto& header : headers) {
    if (sameName(header.first, name)) return header.second;
  }
  return {};
}

std::string urlEncode(std::string_view text, std::string_view kept) {
  static constexpr std::string_view digits = "0123456789ABCDEF";
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool unreserved = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                            (byte >= '0' && byte <= '9') ||
                            std::string_view("-._~").find(c) != std::string_view::npos ||
                            kept.find(c) != std::string_view::npos;
    if (unreserved) {
      out += c;
    } else {
      out += '%';
      out += digits[byte >> 4];
      out += digits[byte & 15];
    }
  }
  return out;
}

HttpRequest jsonPost(std::string url, std::string body) {
  return {.method = "POST",
          .url = std::move(url),
          .headers = {{"Content-Type", "application/json"}},
          .body = std::move(body)};
}

bool isHttpUrl(std::string_view url) {
  const size_t colon = url.find("://");
  if (colon == std::string_view::npos) return false;
  const std::string_view scheme = url.substr(0, colon);
  if (!sameName(scheme, "http") && !sameName(scheme, "https")) return false;
  const std::string_view rest = url.substr(colon + 3);
  const std::string_view host = rest.substr(0, rest.find_first_of("/?#"));
  return !host.empty() && std::none_of(url.begin(), url.end(),
                                       [](unsigned char c) { return c <= ' ' || c == 0x7f; });
}

}  // namespace kestrin
