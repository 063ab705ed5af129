#include "companion/research/public_address.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdint>
#include <string>

namespace kestrin::research {
namespace {

struct Range {
  const char* base;
  int bits;
};

/// What the registry of special-purpose addresses keeps from the public internet.
constexpr std::array notPublic{
    Range{"0.0.0.0", 8},      Range{"10.0.0.0", 8},     Range{"100.64.0.0", 10},
    Range{"127.0.0.0", 8},    Range{"169.254.0.0", 16}, Range{"172.16.0.0", 12},
    Range{"192.0.0.0", 24},   Range{"192.0.2.0", 24},   Range{"192.88.99.0", 24},
    Range{"192.168.0.0", 16}, Range{"198.18.0.0", 15},  Range{"198.51.100.0", 24},
    Range{"203.0.113.0", 24}, Range{"224.0.0.0", 3},
};

bool isPublic4(uint32_t address) {
  return std::none_of(notPublic.begin(), notPublic.end(), [address](const Range& range) {
    in_addr base{};
    inet_pton(AF_INET, range.base, &base);
    return (address ^ ntohl(base.s_addr)) >> (32 - range.bits) == 0;
  });
}

using Bytes16 = std::array<uint8_t, 16>;

uint32_t embedded4(const Bytes16& bytes, size_t at) {
  return uint32_t(bytes[at]) << 24 | uint32_t(bytes[at + 1]) << 16 | uint32_t(bytes[at + 2]) << 8 |
         bytes[at + 3];
}

bool startsWith(const Bytes16& bytes, std::initializer_list<uint8_t> prefix) {
  return std::equal(prefix.begin(), prefix.end(), bytes.begin());
}

bool isPublic6(const Bytes16& bytes) {
  if (startsWith(bytes, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff}) ||
      startsWith(bytes, {0, 0x64, 0xff, 0x9b, 0, 0, 0, 0, 0, 0, 0, 0})) {
    return isPublic4(embedded4(bytes, 12));
  }
  if ((bytes[0] & 0xe0) != 0x20) return false;
  // Teredo, 6to4, ORCHID, documentation.
  return !startsWith(bytes, {0x20, 0x01, 0, 0}) && !startsWith(bytes, {0x20, 0x02}) &&
         !startsWith(bytes, {0x20, 0x01, 0, 0x20}) &&
         !startsWith(bytes, {0x20, 0x01, 0x0d, 0xb8}) && !startsWith(bytes, {0x3f, 0xff});
}

}  // namespace

bool isPublicAddress(std::string_view address) {
  const std::string text(address);
  in_addr four{};
  if (inet_pton(AF_INET, text.c_str(), &four) == 1) return isPublic4(ntohl(four.s_addr));
  Bytes16 six{};
  return inet_pton(AF_INET6, text.c_str(), six.data()) == 1 && isPublic6(six);
}

}  // namespace kestrin::research
