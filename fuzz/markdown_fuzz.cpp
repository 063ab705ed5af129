#include <cstdint>
#include <cstdlib>

#include "platform/http.h"
#include "platform/text/markdown.h"
#include "platform/text/text.h"

namespace {

using kestrin::markdown::Block;

void check(const std::vector<Block>& blocks, size_t depth) {
  if (depth > kestrin::markdown::maxDepth + 1) abort();
  for (const Block& block : blocks) {
    for (const auto& span : block.spans) {
      if (!kestrin::text::isValidUtf8(span.text)) abort();
      if (!span.link.empty() && !kestrin::isHttpUrl(span.link)) abort();
    }
    check(block.children, depth + 1);
  }
}

}  // namespace

/// Whatever an answer holds, it is text of bounded depth whose links lead to the web.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  check(kestrin::markdown::parse({reinterpret_cast<const char*>(data), size}), 1);
  return 0;
}
