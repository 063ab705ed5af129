#pragma once

#include <string_view>

namespace kestrin::server {

/// True for a `Host` value that names this machine's loopback: 127.0.0.1, localhost or [::1], with
/// or without a port.
bool isLoopbackHost(std::string_view host);

/// True for an `Origin` value of a page served by this machine: http or https and a loopback host.
/// "null" (sandboxed pages, local files) is foreign.
bool isLoopbackOrigin(std::string_view origin);

}  // namespace kestrin::server
