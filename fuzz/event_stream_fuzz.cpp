#include <cstdint>
#include <cstdlib>
#include <string>

#include "dictation/agent_events.h"
#include "dictation/sse_client.h"
#include "platform/text/text.h"

namespace {

/// Everything that a stream did, as one text.
std::string effects(std::string_view bytes, size_t pieceSize) {
  std::string did;
  kestrin::AgentEventHandlers handlers;
  handlers.onChunk = [&](const std::string& text) {
    if (text.empty() || !kestrin::text::isValidUtf8(text)) abort();
    const auto marker = kestrin::findStopMarker(text);
    if (marker && marker->position > text.size()) abort();
    did += "c" + text;
  };
  handlers.onAudio = [&](const kestrin::Bytes& audio) { did += "s" + audio; };
  handlers.onResearchStarted = [&](const std::string& id) { did += "r" + id; };
  handlers.onOutputRoute = [&](const kestrin::OutputRoute& route) { did += route.toJson().dump(); };
  handlers.onAction = [&](const kestrin::Json& action) { did += action.dump(); };
  kestrin::AgentEventReader reader("auto", std::move(handlers));
  kestrin::EventStreamFramer framer;
  const auto onEvent = [&](std::string_view event) { reader.receive(event); };
  for (size_t i = 0; i < bytes.size(); i += pieceSize) {
    framer.receive(bytes.substr(i, pieceSize), onEvent);
  }
  framer.finish(onEvent);
  return did + "\n" + reader.mode() + (reader.autoDetected() ? "+" : "-") + reader.fullText();
}

}  // namespace

/// Text means the same however the network cuts it; anything else must only do no harm.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::string whole = effects(bytes, size + 1);
  const std::string cut = effects(bytes, 1);
  if (kestrin::text::isValidUtf8(bytes) && whole != cut) abort();
  return 0;
}
