#include <cstdint>
#include <cstdlib>

#include "companion/research/answer_writer.h"
#include "companion/research/readable_text.h"
#include "platform/http.h"
#include "platform/text/markdown.h"
#include "platform/text/text.h"

namespace {

void checkLinks(const std::vector<kestrin::markdown::Block>& blocks) {
  for (const auto& block : blocks) {
    for (const auto& span : block.spans) {
      // An address that is read aloud is a link to itself; no other word may lead anywhere.
      if (!span.link.empty() && (!kestrin::isHttpUrl(span.link) ||
                                 !kestrin::text::contains(span.link, span.text.substr(0, 4))))
        abort();
    }
    checkLinks(block.children);
  }
}

}  // namespace

/// A page is text of bounded size, and nothing of it is markup in an answer.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view page(reinterpret_cast<const char*>(data), size);
  const auto text = kestrin::research::readableHtml(page, "text/html");
  for (const auto& block : text.blocks) {
    if (block.empty() || !kestrin::text::isValidUtf8(block)) abort();
    checkLinks(kestrin::markdown::parse("- " + kestrin::research::escapedMarkdown(block)));
  }
  return 0;
}
