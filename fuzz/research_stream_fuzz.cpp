#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/text/text.h"
#include "research/research_stream_delegate.h"

namespace {

/// Everything that a stream told, as one text.
std::string told(std::string_view bytes, size_t pieceSize) {
  std::string out;
  kestrin::ResearchStreamDelegate delegate(
      [&](const kestrin::Json& event) {
        out += event.dump();
        if (const auto step = kestrin::ProgressStep::fromEvent(event)) out += step->title;
      },
      [&](const std::string& summary, const std::vector<kestrin::ResearchSource>& sources) {
        out += "=" + summary;
        for (const auto& source : sources) out += source.toJson().dump();
      },
      [&](const std::string& text) { out += "!" + text; });
  for (size_t i = 0; i < bytes.size(); i += pieceSize) {
    delegate.didReceive(bytes.substr(i, pieceSize));
  }
  delegate.didComplete(std::nullopt);
  return out;
}

}  // namespace

/// Text means the same however the network cuts it; anything else must only do no harm.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::string whole = told(bytes, size + 1);
  const std::string cut = told(bytes, 1);
  if (kestrin::text::isValidUtf8(bytes) && whole != cut) abort();
  return 0;
}
