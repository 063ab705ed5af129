#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "companion/http/multipart.h"

// The first line is the Content-Type, the rest the body.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t line = input.find('\n');
  if (line == std::string_view::npos) return 0;
  const std::string_view body = input.substr(line + 1);
  const auto parts = kestrin::server::parseMultipart(input.substr(0, line), body);
  if (!parts) return 0;
  for (const auto& part : *parts) {
    // Contents lie within the body, and none can hold another part.
    const bool inside = part.content.data() >= body.data() &&
                        part.content.data() + part.content.size() <= body.data() + body.size();
    if (!inside) std::abort();
  }
  return 0;
}
