#include "companion/http/guard.h"

#include <algorithm>

#include "platform/text/text.h"

namespace kestrin::server {

namespace {

bool isPort(std::string_view text) {
  return !text.empty() && text.size() <= 5 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

bool isLoopbackHost(std::string_view host) {
  const std::string lowered = text::lower(host);
  for (std::string_view name : {"127.0.0.1", "localhost", "[::1]"}) {
    if (!lowered.starts_with(name)) continue;
    const std::string_view port = std::string_view(lowered).substr(name.size());
    if (port.empty() || (port[0] == ':' && isPort(port.substr(1)))) return true;
  }
  return false;
}

bool isLoopbackOrigin(std::string_view origin) {
  for (std::string_view scheme : {"http://", "https://"}) {
    if (origin.starts_with(scheme)) return isLoopbackHost(origin.substr(scheme.size()));
  }
  return false;
}

}  // namespace kestrin::server
