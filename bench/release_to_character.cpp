// From the release of the hold key to the first character in a real editor, with services that
// answer at once, over real HTTP and the real accessibility bus. The floor, measured in the same
// run: two bare loopback requests one after the other, plus one bare insert. Run it inside
// scripts/desktop-session.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <curl/curl.h>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "companion/http/server.h"
#include "dictation/streaming_request_manager.h"
#include "dictation/transcription_service.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/atspi_accessibility.h"
#include "platform/linux/atspi_browser.h"
#include "platform/linux/atspi_bus.h"
#include "platform/linux/curl_http.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/posix_processes.h"
#include "platform/linux/synthetic_edges.h"
#include "platform/linux/x11_pasteboard.h"
#include "platform/linux/x11_synthetic_input.h"
#include "platform/linux/x11_workspace.h"
#include "platform/simulated/simulated_settings.h"

using namespace kestrin;
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

namespace {

constexpr int rounds = 200;
/// A foreign edit holds inserts back for 150 ms; that wait is not what is measured.
constexpr auto quiet = 200ms;

double milliseconds(SteadyClock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

struct Figures {
  double median = 0;
  double late = 0;
};

Figures figuresOf(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return {times[times.size() / 2], times[times.size() * 99 / 100]};
}

/// Waits for something that another thread brings about.
class Arrival {
 public:
  void expect() {
    std::lock_guard lock(mutex_);
    at_.reset();
  }
  void now() {
    std::lock_guard lock(mutex_);
    if (!at_) at_ = SteadyClock::now();
    changed_.notify_all();
  }
  std::optional<SteadyClock::time_point> wait() {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, 20s, [&] { return at_.has_value(); });
    return at_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<SteadyClock::time_point> at_;
};

size_t discard(char*, size_t size, size_t count, void*) { return size * count; }

/// A request on a kept connection, with nothing round the library.
void bareRequest(CURL* handle, const std::string& url, const std::string& body) {
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, discard);
  curl_easy_perform(handle);
}

int failed(const std::string& what) {
  std::fprintf(stderr, "release_to_character: %s\n", what.c_str());
  return 1;
}

}  // namespace

int main() {
  const auto dispatch = ThreadsDispatch::make();
  const auto http = makeCurlHttp(*dispatch);
  server::Server services(*dispatch, {});
  services.route("POST", "/transcribe/pcm",
                 [](const server::Request&, const server::Responder& responder) {
                   responder.json(200, Json::object({{"transcript", "hello"}}));
                 });
  services.route("POST", "/process/stream",
                 [](const server::Request&, const server::Responder& responder) {
                   auto stream = responder.stream("text/event-stream");
                   stream.send("data: {\"chunk\":\"x\"}\n\ndata: [DONE]\n\n");
                   stream.close();
                 });
  services.route("POST", "/*", [](const server::Request&, const server::Responder& responder) {
    responder.json(200, Json::object());
  });
  if (auto started = services.start(); !started) return failed(started.error().description);
  const std::string base = "http://127.0.0.1:" + std::to_string(services.port());

  LinuxFiles files;
  LinuxRandom random;
  const auto processes = makePosixProcesses();
  const auto file =
      std::filesystem::temp_directory_path() / ("kestrin-bench-" + random.uuid() + ".txt");
  std::ofstream(file) << "bench\n";
  auto editor = processes->start(
      {.program = "mousepad", .arguments = {"--disable-server", file.string()}},
      dispatch->globalQueue(), [](const std::string&, bool) {}, [](int) {});
  if (!editor) return failed(editor.error().description);

  const auto bus = std::make_shared<atspi::AtspiBus>();
  const auto accessibility = makeAtspiAccessibility(*dispatch, bus);
  const auto browser = makeAtspiBrowser(bus);
  X11Workspace workspace;
  X11Pasteboard pasteboard;
  X11SyntheticInput input(std::make_shared<SyntheticEdges>());
  NotificationCenter notifications;
  Logger logger(*dispatch, notifications);
  UndeliveredStore undelivered;
  SimulatedSettings settings;
  DeviceIdManager deviceId(files, settings, random);
  struct NoSecrets final : SecretStore {
    std::optional<Bytes> load(const std::string&, const std::string&) override {
      return std::nullopt;
    }
    Status save(const std::string&, const std::string&, const Bytes&) override { return {}; }
    Status remove(const std::string&, const std::string&) override { return {}; }
    bool persistent() override { return false; }
  } secrets;
  KeychainHelper keychain(secrets, logger);
  GeminiKeyManager geminiKey(keychain, settings);
  UserPreferences preferences(settings);
  const Endpoints endpoints{base, base, base, base};
  LocalASRService asr(*dispatch, *http, files, random, logger, endpoints);
  const auto transcription = std::make_shared<TranscriptionService>(
      *dispatch, *http, settings, notifications, logger, asr, preferences, deviceId, geminiKey,
      endpoints, RequestContextSources{});
  const auto manager = std::make_shared<StreamingRequestManager>(
      InsertionPorts{*dispatch, random, workspace, *accessibility, input, pasteboard, *browser},
      logger, undelivered);

  // The editor's own report of the change, heard by a second connection, is the end of each
  // measurement.
  const auto witness = makeAtspiAccessibility(*dispatch, std::make_shared<atspi::AtspiBus>());
  Result<AxElement> element = fail("bench", 1, "no focused element");
  for (int i = 0; i < 400 && !element; ++i) {
    std::this_thread::sleep_for(50ms);
    if (workspace.frontmostApplication() &&
        workspace.frontmostApplication()->pid == (*editor)->pid()) {
      element = accessibility->focusedElement((*editor)->pid());
    }
  }
  if (!element) return failed(element.error().description);
  Arrival arrival;
  auto watch = witness->watchText(*element, [&](const TextChange& change) {
    if (change.inserted > 0) arrival.now();
  });
  if (!watch) return failed(watch.error().description);

  // The main queue is served as in the application.
  std::thread measuring([&] {
    const Bytes pcm(32'000 * 3, '\0');
    std::vector<double> ours;
    std::vector<double> floor;
    CURL* handle = curl_easy_init();
    for (int i = 0; i < rounds + 10; ++i) {
      auto context = manager->captureCursorContext();
      arrival.expect();
      const auto start = SteadyClock::now();
      auto request = manager->createRequest(context);
      Arrival complete;
      transcription->transcribePCMStreaming(
          pcm, "auto", CapturedContext{}, std::nullopt,
          [&](const std::string& chunk) { manager->addChunk(chunk, request->id()); },
          [&](const Result<TranscriptionResult>&) { complete.now(); });
      const auto arrived = arrival.wait();
      complete.wait();
      manager->completeRequest(request->id());
      if (!arrived) {
        failed("a text never arrived");
        break;
      }
      if (i >= 10) ours.push_back(milliseconds(*arrived - start));

      // Both find the editor asleep, as a dictation does.
      dispatch->clock().sleep(quiet, "quiet field");
      arrival.expect();
      const auto bareStart = SteadyClock::now();
      bareRequest(handle, base + "/transcribe/pcm", pcm);
      bareRequest(handle, base + "/process/stream", "{}");
      bus->call<bool>(*element, atspi::editableInterface, "InsertText", atspi::Budget(2s),
                      int32_t{context->cursorIndexUTF16().value_or(0)}, std::string("y"),
                      int32_t{1});
      const auto bareArrived = arrival.wait();
      if (bareArrived && i >= 10) floor.push_back(milliseconds(*bareArrived - bareStart));
      dispatch->clock().sleep(quiet, "quiet field");
    }
    curl_easy_cleanup(handle);
    if (ours.size() == rounds && floor.size() == rounds) {
      const Figures a = figuresOf(std::move(floor));
      const Figures b = figuresOf(std::move(ours));
      std::printf(
          "release to first character: floor %.2f / %.2f ms   ours %.2f / %.2f ms   ratio %.2f / "
          "%.2f "
          "(median / 99th of %d)\n",
          a.median, a.late, b.median, b.late, b.median / a.median, b.late / a.late, rounds);
    }
    dispatch->mainLoop().quit(ours.size() == rounds ? 0 : 1);
  });
  const int status = dispatch->mainLoop().run();
  measuring.join();
  (*watch).reset();
  (*editor)->terminate();
  std::filesystem::remove(file);
  return status;
}
