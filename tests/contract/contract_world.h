#pragma once

#include <atomic>
#include <future>
#include <gtest/gtest.h>

#include "app/live_assist_sources.h"
#include "app/terminal_services.h"
#include "companion/companion.h"
#include "diagnostics/terminal/terminal_view.h"
#include "platform/linux/curl_http.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"
#include "support/worlds.h"

namespace kestrin::test {

/// Hears the same sentence in everything.
class SentenceEngine final : public recogniser::Engine {
 public:
  static constexpr const char* sentence = "Please send the drawings to Ann before Monday.";
  Result<recogniser::Decoded> decode(std::span<const float>) override {
    return recogniser::Decoded{sentence, 9, -1.0};
  }
};

/// A machine that is simulated but for its network, whose services are the companion itself: what
/// the application's clients make of its answers is what an application would show.
struct ContractWorld {
  ContractWorld() {
    CompanionOptions options;
    for (auto* port :
         {&options.recogniserPort, &options.modelPort, &options.agentPort, &options.backendPort})
      *port = 0;
    options.storePath = folder.file("store.sqlite");
    options.version = "7.0";
    options.ports.speech = &voice;
    options.ports.engine = [] {
      return Result<std::unique_ptr<recogniser::Engine>>(std::make_unique<SentenceEngine>());
    };
    std::atomic<bool> isLoaded = false;
    const auto listening = companion.start(options, [&](const Status&) { isLoaded = true; });
    std::map<std::string, std::string> at;
    for (const auto& each : *listening)
      at[each.service] = "http://127.0.0.1:" + std::to_string(each.port);
    endpoints = {at["asr"], at["llm"], at["agent"], at["backend"]};
    // The recogniser says that it is loading before.
    until([&] { return isLoaded.load(); });
    settings.set("nibo_user_name", Json("Ada"));
    core.emplace(platform, endpoints, AuthEndpoint{"http://127.0.0.1:9", "key"});
    core->deviceId.deviceId();
    home.emplace(*core, nullptr, "Right Ctrl", [this] { return notes; });
  }
  ~ContractWorld() {
    home.reset();
    core.reset();
  }

  /// Runs the main queue until `done`.
  void until(const std::function<bool()>& done) { EXPECT_TRUE(eventually(dispatch, done)); }
  /// What `ask` hands to the completion that it is given, from whichever queue.
  template <class T>
  T answer(const std::function<void(std::function<void(T)>)>& ask) {
    const auto got = std::make_shared<std::promise<T>>();
    auto future = got->get_future();
    ask([got](T value) { got->set_value(std::move(value)); });
    until([&] { return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    return future.get();
  }
  /// A dictation of two seconds in an editor.
  Result<TranscriptionResult> dictate(const std::string& mode) {
    CapturedContext context;
    context.appName = "Text Editor";
    context.audioDurationMs = 2000;
    context.selectedText = "old words";
    return answer<Result<TranscriptionResult>>([&](auto done) {
      core->transcription->transcribePCMStreaming(
          speech(), mode, context, std::nullopt,
          [this](const std::string& chunk) { chunks.add(chunk); }, done);
    });
  }
  static Bytes speech() {
    Bytes pcm;
    for (int i = 0; i < 32'000; ++i)
      pcm += i % 80 < 40 ? std::string("\x00\x20", 2) : std::string("\x00\xe0", 2);
    return pcm;
  }
  std::string user() { return core->deviceId.deviceId(); }

  ScratchFolder folder;
  std::unique_ptr<ThreadsDispatch> threads = ThreadsDispatch::make();
  ThreadsDispatch& dispatch = *threads;
  const std::unique_ptr<Http> http = makeCurlHttp(dispatch);
  SimulatedSpeech voice;
  Companion companion{dispatch, *http, [](const std::string&) {}};
  Endpoints endpoints;

  SimulatedDesktop desktop{dispatch};
  SimulatedFiles files{dispatch.clock()};
  LinuxRandom random;
  SimulatedSettings settings;
  NotificationCenter notifications;
  SimulatedProcesses processes{dispatch};
  SimulatedKeyMonitor keyMonitor{desktop};
  SimulatedInput input{dispatch, desktop};
  SimulatedAccessibility accessibility{dispatch, desktop};
  SimulatedWorkspace workspace{dispatch, desktop};
  SimulatedPasteboard pasteboard{dispatch, desktop};
  SimulatedAudio audio{dispatch};
  SimulatedBrowser browser{desktop};
  SimulatedSecretStore secrets;
  SimulatedUserNotifications userNotifications;
  SimulatedSystemControls controls;
  SimulatedLoginItem loginItem;
  SimulatedPlaceService place{dispatch.clock()};
  SimulatedSpeech speechOut;
  SimulatedCalendars calendars;
  SimulatedWebPages webPages;
  Platform platform{dispatch,          *http,      files,      random,    settings,
                    notifications,     processes,  keyMonitor, input,     accessibility,
                    workspace,         pasteboard, audio,      browser,   secrets,
                    userNotifications, controls,   speechOut,  loginItem, place,
                    calendars,         webPages};
  Log chunks;
  std::vector<VoiceNote> notes;
  std::optional<CoreServices> core;
  std::optional<Home> home;
};

}  // namespace kestrin::test
