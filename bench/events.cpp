// Events per second from the network's bytes to the request's state, on one core: framing, JSON,
// both filters and the state with its queue. The floor is what any program must do at least:
// finding the events' ends in the same bytes.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <sched.h>

#include "dictation/agent_events.h"
#include "dictation/sse_client.h"
#include "dictation/streaming_request.h"
#include "platform/dispatch/threads.h"
#include "platform/simulated/simulated_world.h"

namespace {

using namespace kestrin;

constexpr size_t events = 2'000'000;
constexpr size_t blockBytes = 16384;

double secondsOf(const std::function<void()>& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

std::string stream(std::string& text) {
  static constexpr const char* words[] = {"the ",  "quick ",    "bröwn ",
                                          "fox, ", "jumps.\\n", "over "};
  static constexpr const char* spoken[] = {"the ",  "quick ",   "bröwn ",
                                           "fox, ", "jumps.\n", "over "};
  std::string bytes;
  for (size_t i = 0; i < events; ++i) {
    bytes += std::string("data: {\"chunk\":\"") + words[i % 6] + "\"}\n\n";
    text += spoken[i % 6];
  }
  return bytes;
}

size_t countEvents(const std::string& bytes) {
  size_t found = 0;
  const char* at = bytes.data();
  const char* const end = at + bytes.size();
  while (at < end) {
    at = static_cast<const char*>(std::memchr(at, '\n', static_cast<size_t>(end - at)));
    if (!at) break;
    if (++at < end && *at == '\n') ++found, ++at;
  }
  return found;
}

}  // namespace

int main() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  if (sched_setaffinity(0, sizeof one, &one) != 0) std::perror("pinning to one core");

  std::string text;
  const std::string bytes = stream(text);
  const auto dispatch = ThreadsDispatch::make();
  SimulatedWorld world;
  Logger logger(*dispatch, world.notifications);
  const auto context = std::make_shared<CursorContext>(
      InsertionPorts::from(world.platform), logger,
      CursorContext::Target{"bench", dispatch->clock().wallNow(), {}, "Bench", "", 0, 0});
  const auto request = std::make_shared<StreamingRequest>(*dispatch, logger, context);

  size_t found = 0;
  const double floor = secondsOf([&] { found = countEvents(bytes); });
  size_t reached = 0;
  std::string taken;
  const double whole = secondsOf([&] {
    AgentEventHandlers handlers;
    handlers.onChunk = [&](const std::string& chunk) {
      ++reached;
      request->addChunk(chunk);
    };
    AgentEventReader reader("auto", std::move(handlers));
    EventStreamFramer framer;
    const auto onEvent = [&](std::string_view event) { reader.receive(event); };
    for (size_t i = 0; i < bytes.size(); i += blockBytes) {
      framer.receive(std::string_view(bytes).substr(i, blockBytes), onEvent);
      for (const std::string& piece : request->takePendingChunks()) taken += piece;
    }
    framer.finish(onEvent);
    for (const std::string& piece : request->takePendingChunks()) taken += piece;
  });
  const bool right = found == events && reached == events && taken == text &&
                     request->accumulatedText() == text && request->totalChunksReceived() == events;
  std::printf("floor (finding event ends)            %8.2f million events/s\n",
              events / floor / 1e6);
  std::printf("framing + JSON + filters + state      %8.2f million events/s\n",
              events / whole / 1e6);
  std::printf("ratio to the floor                    %8.1f\n", whole / floor);
  std::printf("text complete and in order            %8s\n", right ? "yes" : "NO");
  return right ? 0 : 1;
}
