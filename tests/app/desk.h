#pragma once

#include <gtest/gtest.h>

#include "app/application.h"
#include "platform/simulated/simulated_world.h"

namespace kestrin::test {

using namespace std::chrono_literals;

/// The whole application on a simulated machine: a text editor in front, services that answer,
/// somebody who speaks into the microphone.
struct Desk : SimulatedWorld {
  static constexpr int editorPid = 41;

  explicit Desk(uint64_t seed = 1) : SimulatedWorld(seed) {
    addEditor(42, "Other", "");
    addEditor(editorPid, "Notes", "abc");
    settings.set("pref_serviceHost", "external");
    for (const char* where : {"127.0.0.1:8001/", "127.0.0.1:8082/health", "127.0.0.1:8765/health",
                              "127.0.0.1:8780/*"}) {
      http.on("*", where, ScriptedReply::json(Json::object({{"status", "ok"}})));
    }
    http.on("POST", "127.0.0.1:8001/transcribe/pcm",
            ScriptedReply::json(Json::object({{"transcript", "hello"}})).after(40ms));
    agentAnswers("Hello there");
  }
  ~Desk() {
    if (application) onMain([this] { application->stop(); });
    simulation->runFor(120s);
  }

  void addEditor(int pid, const std::string& name, const std::string& text) {
    SimulatedElement field;
    field.path = "/text";
    field.text = text;
    const int end = static_cast<int>(text.size());
    field.selection = {end, 0};
    desktop.addApplication({pid,
                            "org.example." + name,
                            name,
                            "gtk",
                            {{uint64_t(pid), name + " - " + "Editor", {field}, "/text", {}, 0}}});
  }
  static std::string event(const Json& event) { return "data: " + event.dump() + "\n\n"; }
  static std::string chunk(const std::string& text) {
    return event(Json::object({{"chunk", text}}));
  }
  void agentSends(std::vector<std::string> events, Duration between = 20ms) {
    auto reply = ScriptedReply::events({});
    for (auto& each : events) reply.piece(between, std::move(each));
    http.on("POST", "127.0.0.1:8765/process/stream", reply);
  }
  void agentAnswers(const std::string& text) { agentSends({chunk(text)}); }
  /// A result that says `mode` and whose text did not pass through the stream's chunks to the
  /// caret.
  void agentAnswersMode(const std::string& mode, const std::string& text) {
    agentSends({event(Json::object({{"mode", mode}})), chunk(text)});
  }

  Application& start() {
    Application::Options options;
    options.endpoints = {"http://127.0.0.1:8001", "http://127.0.0.1:8082", "http://127.0.0.1:8765",
                         "http://127.0.0.1:8780"};
    application = std::make_unique<Application>(platform, options);
    // Their requests would take the answers that a test has laid out for its own.
    application->startSequence().hooks.startAllBackgroundCaches = nullptr;
    application->core().logger.setSink(
        [this](std::string_view line) { printed.emplace_back(line); });
    application->mainWindow().onStatus = [this](const StatusLine& line) {
      statuses.push_back(line.text);
    };
    onMain([this] { application->start(); });
    return *application;
  }
  Application& startReady() {
    start();
    EXPECT_TRUE(simulation->runUntil([this] { return application->delegate().isAppReady; }, 30s));
    return *application;
  }
  void onMain(std::function<void()> job) {
    bool done = false;
    dispatch.mainQueue()->post([&] {
      job();
      done = true;
    });
    ASSERT_TRUE(simulation->runUntil([&] { return done; }, 5s)) << simulation->dump();
  }

  void speak(Duration length) {
    const auto samples = static_cast<size_t>(48 * (length / 1ms));
    std::vector<float> tone(samples);
    for (size_t i = 0; i < samples; ++i) tone[i] = i % 96 < 48 ? 0.3F : -0.3F;
    audio.speak("mic", std::move(tone), 48000);
  }
  void press(Duration length = 1000ms) {
    speak(length);
    desktop.pressHoldKey();
    simulation->runFor(length);
  }
  void dictate(Duration length = 1000ms) {
    press(length);
    desktop.releaseHoldKey();
  }
  /// A dictation and everything it leads to, up to the status line's return.
  void dictateWhole() {
    dictate();
    simulation->runFor(12s);
  }

  std::string text(int pid = editorPid) { return desktop.element(pid, "/text")->text; }
  std::string clipboard() { return desktop.clipboard().text.value_or(""); }
  bool showed(const std::string& line) const {
    return std::find(statuses.begin(), statuses.end(), line) != statuses.end();
  }
  bool printedLine(const std::string& part) const {
    return std::any_of(printed.begin(), printed.end(),
                       [&](const std::string& line) { return line.find(part) != line.npos; });
  }
  std::string shown() const { return text::join(statuses, "\n"); }
  /// The dictations that were sent to the agent.
  std::vector<SeenRequest> streamRequests() const {
    auto requests = http.requests("127.0.0.1:8765/process/stream");
    std::erase_if(requests, [](const auto& seen) { return seen.request.method != "POST"; });
    return requests;
  }
  size_t streams() const { return streamRequests().size(); }

  std::vector<std::string> statuses;
  std::vector<std::string> printed;
  std::unique_ptr<Application> application;
};

}  // namespace kestrin::test
