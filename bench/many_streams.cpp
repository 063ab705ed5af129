// 64 dictations at once, 200 chunks a second each: for 60 seconds of virtual time and for 10 real
// ones (threads, event streams from a scripted server). Every character must arrive in order;
// memory must stay level. The floor is the text itself: what the streams carry.
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <unistd.h>

#include "dictation/agent_events.h"
#include "dictation/sse_client.h"
#include "dictation/streaming_request_manager.h"
#include "platform/dispatch/threads.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace {

using namespace kestrin;
using namespace std::chrono_literals;

constexpr int streams = 64;
constexpr auto chunkInterval = 5ms;

/// Documents in memory that confirm each insert; any thread.
class Documents final : public Accessibility {
 public:
  Status available() override { return {}; }
  Result<AxElement> focusedWindow(int) override { return fail("Documents", 1, "none"); }
  Result<AxElement> focusedElement(int pid) override {
    return AxElement{"docs", std::to_string(pid)};
  }
  Result<AxElement> focusedDescendant(const AxElement& root) override { return root; }
  Result<std::string> role(const AxElement&) override { return std::string("AXTextArea"); }
  Result<std::string> title(const AxElement&) override { return std::string(); }
  Result<std::string> toolkit(const AxElement&) override { return std::string("gtk"); }
  Result<std::string> value(const AxElement& element) override {
    const std::lock_guard lock(mutex_);
    return texts_[element.path];
  }
  Result<std::string> textRange(const AxElement& element, int begin, int end) override {
    return text::utf16Slice(*value(element), size_t(begin), size_t(end));
  }
  Result<int> textLength(const AxElement& element) override {
    const std::lock_guard lock(mutex_);
    return int(texts_[element.path].size());
  }
  Result<TextRange> selectedRange(const AxElement&) override { return TextRange{}; }
  Result<std::string> selectedText(const AxElement&) override { return std::string(); }
  Result<bool> isEditable(const AxElement&) override { return true; }
  InsertOutcome insertText(const AxElement& element, int offset,
                           const std::string& piece) override {
    const std::lock_guard lock(mutex_);
    texts_[element.path].insert(size_t(offset), piece);
    ++inserts;
    return InsertOutcome::delivered;
  }
  InsertOutcome lateOutcome(const AxElement&, Duration) override { return InsertOutcome::refused; }
  Result<SubscriptionHandle> watchText(const AxElement&, std::function<void(TextChange)>) override {
    return onUnsubscribe([] {});
  }
  int inserts = 0;

 private:
  std::mutex mutex_;
  std::map<std::string, std::string> texts_;
};

std::string chunkText(int stream, int index) {
  return std::to_string(stream) + ":" + std::to_string(index) + " ";
}

double residentMegabytes() {
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return double(pages) * double(sysconf(_SC_PAGESIZE)) / 1e6;
}

struct Bench {
  explicit Bench(Dispatch& d)
      : dispatch(d), ports{d,           world.random,     world.workspace, documents,
                           world.input, world.pasteboard, world.browser} {
    for (int i = 0; i < streams; ++i) {
      requests.push_back(manager->createRequest(std::make_shared<CursorContext>(
          ports, logger,
          CursorContext::Target{
              "stream" + std::to_string(i), d.clock().wallNow(), {}, "Bench", "", 0, i + 1})));
    }
    manager->onDelivery = [this](const DeliveryReport& report) {
      ++ended;
      if (report.outcome != DeliveryOutcome::inserted) ++undelivered;
    };
  }
  void add(int stream, int index) {
    manager->addChunk(chunkText(stream, index), requests[size_t(stream)]->id());
  }
  void completeAll() {
    for (const auto& request : requests) {
      dispatch.globalQueue()->post(
          [manager = manager, id = request->id()] { manager->completeRequest(id); });
    }
  }
  /// The first wrong stream, or -1.
  int firstWrong(int chunks) {
    for (int i = 0; i < streams; ++i) {
      std::string expected;
      for (int j = 0; j < chunks; ++j) expected += chunkText(i, j);
      if (*documents.value({"docs", std::to_string(i + 1)}) != expected) return i;
    }
    return -1;
  }
  bool report(const char* name, int chunks, double before, double half, double after) {
    const int wrong = firstWrong(chunks);
    double carried = 0;
    for (const auto& request : requests) carried += double(request->accumulatedText().size()) / 1e6;
    std::printf(
        "%s: %d streams x %d chunks, %d inserts, %s; text %.1f MB, memory %.1f -> %.1f -> %.1f "
        "MB\n",
        name, streams, chunks, documents.inserts,
        wrong < 0 && undelivered == 0 ? "every character in order" : "TEXT WRONG", carried, before,
        half, after);
    return wrong < 0 && undelivered == 0;
  }

  Dispatch& dispatch;
  SimulatedWorld world;
  Documents documents;
  InsertionPorts ports;
  NotificationCenter notifications;
  Logger logger{dispatch, notifications};
  UndeliveredStore kept;
  std::shared_ptr<StreamingRequestManager> manager =
      std::make_shared<StreamingRequestManager>(ports, logger, kept);
  std::vector<std::shared_ptr<StreamingRequest>> requests;
  int ended = 0;
  int undelivered = 0;
};

bool inSimulation() {
  constexpr int chunks = 60 * 200;
  const auto simulation = Simulation::make(1);
  Bench bench(*simulation);
  const double before = residentMegabytes();
  std::vector<TimerHandle> feeds;
  for (int i = 0; i < streams; ++i) {
    feeds.push_back(simulation->every(simulation->makeQueue("feed"), chunkInterval,
                                      [&bench, i, next = 0]() mutable {
                                        if (next < chunks) bench.add(i, next++);
                                      }));
  }
  simulation->runFor(30s);
  const double half = residentMegabytes();
  simulation->runFor(30s + chunkInterval);
  const double after = residentMegabytes();
  feeds.clear();
  bench.completeAll();
  simulation->runFor(60s);
  return bench.report("60 simulated seconds", chunks, before, half, after);
}

bool inRealTime() {
  constexpr int chunks = 10 * 200;
  const auto dispatch = ThreadsDispatch::make();
  SimulatedHttp http(*dispatch);
  http.on("POST", "*", [](const HttpRequest& request) {
    const int stream = std::atoi(request.body.c_str());
    ScriptedReply reply = ScriptedReply::events({});
    for (int i = 0; i < chunks; ++i) {
      reply.piece(chunkInterval, "data: {\"chunk\":\"" + chunkText(stream, i) + "\"}\n\n");
    }
    return reply;
  });
  Bench bench(*dispatch);
  const double before = residentMegabytes();
  double half = 0;
  double after = 0;
  int completed = 0;
  const auto main = dispatch->mainQueue();
  for (int i = 0; i < streams; ++i) {
    auto reader = std::make_shared<AgentEventReader>(
        "auto", AgentEventHandlers{.onChunk = [&bench, i](const std::string& text) {
          bench.manager->addChunk(text, bench.requests[size_t(i)]->id());
        }});
    HttpRequest request;
    request.method = "POST";
    request.url = "http://bench/process/stream";
    request.body = std::to_string(i);
    std::make_shared<SSEClient>(http)->stream(
        request, [reader](std::string_view event) { reader->receive(event); },
        [&, main](std::optional<Error> error) {
          main->post([&, error] {
            if (error) std::printf("stream: %s\n", error->description.c_str());
            if (++completed == streams) {
              after = residentMegabytes();
              bench.completeAll();
            }
          });
        });
  }
  main->postAfter(5s, [&] { half = residentMegabytes(); });
  const auto watch = dispatch->every(main, 50ms, [&] {
    if (bench.ended == streams) dispatch->mainLoop().quit(0);
  });
  const auto giveUp = dispatch->after(main, 120s, [&] { dispatch->mainLoop().quit(1); });
  const int code = dispatch->mainLoop().run();
  if (code != 0)
    std::printf("10 real seconds: only %d of %d streams ended\n", bench.ended, streams);
  return bench.report("10 real seconds", chunks, before, half, after) && code == 0;
}

}  // namespace

int main() {
  const bool first = inSimulation();
  return inRealTime() && first ? 0 : 1;
}
