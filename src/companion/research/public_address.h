#pragma once

#include <string_view>

namespace kestrin::research {

/// Whether a numeric IPv4 or IPv6 address belongs to the public internet. Loopback, private,
/// link-local, shared, multicast and reserved ranges do not, nor do addresses that hold one of
/// those (mapped, NAT64, 6to4, Teredo), nor anything that is no address.
bool isPublicAddress(std::string_view address);

}  // namespace kestrin::research
