#include <iostream>
#include <optional>

#include "app/core_services.h"
#include "cli/audio_clock.h"
#include "cli/commands.h"
#include "cli/counted_http.h"
#include "cli/printable.h"
#include "cli/recorded_audio.h"
#include "liveassist/live_assist.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

using namespace std::chrono_literals;

/// A frame of the other side's sound; the microphone's is a multiple.
constexpr Duration stretch = 64ms;
/// The silence behind the recordings ends the last sentence, and the last feedback comes.
constexpr Duration silence = 5s;
constexpr Duration answerPatience = 60s;

/// One session over two recordings. The listeners run on the main queue, `play` on a queue of its
/// own.
class RecordedSession {
 public:
  RecordedSession(LinuxPlatform& backends, CoreServices& core, RecordedAudio& audio,
                  const LiveOptions& options)
      : backends_(backends),
        options_(options),
        audio_(audio),
        engine_(core.platform.dispatch),
        requests_(engine_, "the answers of a recorded session"),
        http_(core.platform.http, requests_) {
    if (options.fast) audioClock_.emplace(engine_);
    Platform& platform = core.platform;
    live_.emplace(LiveAssist::Sources{.dispatch = audioClock_ ? *audioClock_ : engine_,
                                      .http = http_,
                                      .audio = audio_,
                                      .files = platform.files,
                                      .random = platform.random,
                                      .settings = platform.settings,
                                      .pasteboard = platform.pasteboard,
                                      .logger = core.logger,
                                      .deviceId = core.deviceId,
                                      .geminiKey = core.geminiKey,
                                      .preferences = core.preferences,
                                      .profiles = core.behavioralProfile,
                                      .endpoints = core.endpoints});
  }

  /// Main queue.
  void start() {
    LiveAssistView& view = live_->view();
    view.onLine = [this](const LAChatMessage& message) { line(message); };
    view.onFailure = [this](LAAudioChannel channel, const std::string& error) {
      failure(channel, error);
    };
    view.loop().onAnswer = [this](const Json& answer) { feedback(answer); };
    if (const auto useCase = liveAssistUseCaseFrom(options_.useCase)) view.chooseUseCase(*useCase);
    view.onChange = [this, &view] {
      if (view.status().kind == LiveAssistView::StatusKind::failed && !view.isCapturing()) {
        tell("kestrin: " + view.status().text);
        return backends_.mainLoop().quit(failed);
      }
      if (!view.isCapturing() || std::exchange(playing_, true)) return;
      player_->post([this] { play(); });
    };
    view.startCapture();
  }

 private:
  void play() {
    const SteadyTime began = engine_.clock().steadyNow();
    const Duration whole = audio_.length() + silence;
    for (Duration at{}; at < whole; at += stretch) {
      if (!audioClock_) {
        const Duration early = began + (at + stretch) - engine_.clock().steadyNow();
        if (early > Duration{}) engine_.clock().sleep(early, "the next stretch of the recordings");
      }
      audio_.deliver(stretch);
      if (!audioClock_) continue;
      audioClock_->advance(stretch);
      settle();
    }
    engine_.mainQueue()->sync([this] { live_->view().stopCapture(); });
    settle();
    engine_.mainQueue()->post([this] { backends_.mainLoop().quit(failures_ > 0 ? failed : done); });
  }

  /// What is under way must be done before the recordings go on.
  void settle() {
    bool answered = false;
    while (!answered) {
      if (audioClock_) audioClock_->settle();
      answered = requests_.wait(Duration{});
      if (!answered && !requests_.wait(answerPatience)) return;
      engine_.mainQueue()->sync([] {});
    }
  }

  void line(const LAChatMessage& message) {
    if (options_.json) {
      return print(Json::object({{"event", "line"},
                                 {"channel", rawValue(message.channel)},
                                 {"text", message.text},
                                 {"speaker", message.speakerNumber},
                                 {"metadata", message.metadata},
                                 {"time", dates::iso8601(message.timestamp, true)}}));
    }
    const bool mine = message.channel == LAAudioChannel::microphone;
    std::cout << dates::format(message.timestamp, "HH:mm:ss") << (mine ? "  YOU    " : "  OTHER  ")
              << printable(message.text) << std::endl;
  }

  void failure(LAAudioChannel channel, const std::string& error) {
    ++failures_;
    if (options_.json) {
      print(Json::object({{"event", "error"},
                          {"domain", "LiveAssistTranscriber"},
                          {"code", 1},
                          {"channel", rawValue(channel)},
                          {"description", error}}));
    }
    tell("kestrin: " + error);
  }

  void feedback(const Json& answer) {
    const std::string summary = answer.stringAt("feedbackSummary", "");
    const auto suggestions = answer.stringsAt("suggestions");
    if (summary.empty() && suggestions.empty()) return;
    Json event = Json::object({{"event", "feedback"},
                               {"summary", summary},
                               {"suggestions", Json::arrayOf(suggestions)},
                               {"keywords", Json::arrayOf(answer.stringsAt("keywords"))}});
    if (shown_ == event) return;
    shown_ = event;
    if (options_.json) return print(event);
    if (!summary.empty()) std::cout << "          ● " << printable(summary) << "\n";
    for (const auto& each : suggestions) std::cout << "            – " << printable(each) << "\n";
    std::cout << std::flush;
  }

  static void print(const Json& event) { std::cout << event.dump() << std::endl; }
  static void tell(const std::string& line) { std::cerr << printable(line) << std::endl; }

  LinuxPlatform& backends_;
  const LiveOptions& options_;
  RecordedAudio& audio_;
  Dispatch& engine_;
  Group requests_;
  CountedHttp http_;
  std::optional<AudioClock> audioClock_;
  const QueueRef player_ = engine_.makeQueue("com.kestrin.recordings");
  std::optional<LiveAssist> live_;
  bool playing_ = false;
  int failures_ = 0;
  Json shown_;
};

/// A recording as one channel; without a path, silence.
Result<wav::Sound> readSound(Files& files, const std::string& path) {
  if (path.empty()) return wav::Sound{wav::speechSampleRate, 1, {}};
  const auto bytes = files.read(path);
  if (!bytes) return fail(bytes.error());
  auto sound = wav::read(*bytes);
  if (!sound) return fail("WAV", sound.error().code, path + ": " + sound.error().description);
  sound->samples = wav::toMono(*sound);
  sound->channels = 1;
  return sound;
}

}  // namespace

int live(const LiveOptions& options) {
  const auto warn = [](const std::string& line) {
    std::cerr << "kestrin: " << printable(line) << std::endl;
  };
  LinuxPlatform backends(warn);
  Platform& platform = backends.platform();
  auto microphone = readSound(platform.files, options.microphone);
  auto system = readSound(platform.files, options.system);
  for (const auto* sound : {&microphone, &system}) {
    if (*sound) continue;
    warn(sound->error().description);
    return failed;
  }
  RecordedAudio audio(std::move(microphone->samples), microphone->sampleRate,
                      wav::resample(system->samples, system->sampleRate, wav::speechSampleRate));
  CoreServices core(platform, Endpoints::fromEnvironment());
  core.deviceId.deviceId();
  std::optional<RecordedSession> session;
  session.emplace(backends, core, audio, options);
  platform.dispatch.mainQueue()->post([&session] { session->start(); });
  const int status = backends.mainLoop().run();
  session.reset();
  backends.endJobs();
  return status;
}

}  // namespace kestrin::cli
