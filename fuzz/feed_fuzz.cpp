#include <cstdint>
#include <cstdlib>

#include "companion/home/news.h"
#include "platform/http.h"
#include "platform/text/text.h"

/// A feed is titles and addresses of the web, whatever it holds.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  for (const auto& item : kestrin::home::readFeed({reinterpret_cast<const char*>(data), size})) {
    if (item.title.empty() || !kestrin::text::isValidUtf8(item.title)) abort();
    if (!item.url.empty() && !kestrin::isHttpUrl(item.url)) abort();
  }
  return 0;
}
