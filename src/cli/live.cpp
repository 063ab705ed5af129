#include <optional>

#include "app/live_assist_sources.h"
#include "cli/audio_clock.h"
#include "cli/commands.h"
#include "cli/counted_http.h"
#include "cli/interrupt.h"
#include "cli/live_printer.h"
#include "cli/recorded_audio.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

using namespace std::chrono_literals;

/// A frame of the other side's sound; the microphone's is a multiple.
constexpr Duration stretch = 64ms;
/// The silence behind the recordings ends the last sentence, and the last feedback comes.
constexpr Duration silence = 5s;
constexpr Duration answerPatience = 60s;
/// From the end of the capture to the end of the program.
constexpr Duration lastWords = 3s;

/// One session over two recordings. The listeners run on the main queue, `play` on a queue of its
/// own.
class RecordedSession {
 public:
  RecordedSession(LinuxPlatform& backends, CoreServices& core, RecordedAudio& audio,
                  const LiveOptions& options)
      : backends_(backends),
        options_(options),
        printer_(options.json),
        audio_(audio),
        engine_(core.platform.dispatch),
        requests_(engine_, "the answers of a recorded session"),
        http_(core.platform.http, requests_) {
    if (options.fast) audioClock_.emplace(engine_);
    live_.emplace(liveAssistSources(
        core, audioClock_ ? static_cast<Dispatch&>(*audioClock_) : engine_, http_, audio_));
  }

  /// Main queue.
  void start() {
    LiveAssistView& view = live_->view();
    printer_.attach(view);
    if (const auto useCase = liveAssistUseCaseFrom(options_.useCase)) view.chooseUseCase(*useCase);
    view.onChange = [this, &view] {
      if (view.status().kind == LiveAssistView::StatusKind::failed && !view.isCapturing()) {
        tell(view.status().text);
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
    engine_.mainQueue()->post(
        [this] { backends_.mainLoop().quit(printer_.hasFailed() ? failed : done); });
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

  LinuxPlatform& backends_;
  const LiveOptions& options_;
  LivePrinter printer_;
  RecordedAudio& audio_;
  Dispatch& engine_;
  Group requests_;
  CountedHttp http_;
  std::optional<AudioClock> audioClock_;
  const QueueRef player_ = engine_.makeQueue("com.kestrin.recordings");
  std::optional<LiveAssist> live_;
  bool playing_ = false;
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

int fromRecordings(LinuxPlatform& backends, const LiveOptions& options) {
  Platform& platform = backends.platform();
  auto microphone = readSound(platform.files, options.microphone);
  auto system = readSound(platform.files, options.system);
  for (const auto* sound : {&microphone, &system}) {
    if (*sound) continue;
    tell(sound->error().description);
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

/// Both channels as they are heard, until Ctrl-C or the time given.
int fromDevices(LinuxPlatform& backends, const LiveOptions& options) {
  Platform& platform = backends.platform();
  CoreServices core(platform, Endpoints::fromEnvironment());
  core.deviceId.deviceId();
  std::optional<LiveAssist> live;
  live.emplace(liveAssistSources(core, platform.dispatch, platform.http, platform.audio));
  LivePrinter printer(options.json);
  LiveAssistView& view = live->view();
  bool listening = false;
  TimerHandle patience;
  const auto end = [&] {
    view.stopCapture();
    // What was said last is still being understood.
    patience = platform.dispatch.after(platform.dispatch.mainQueue(), lastWords, [&] {
      backends.mainLoop().quit(printer.hasFailed() ? failed : done);
    });
  };
  Interrupt interrupt(platform.dispatch, end);
  TimerHandle limit;
  if (options.seconds > 0) {
    limit = platform.dispatch.after(platform.dispatch.mainQueue(),
                                    std::chrono::seconds(options.seconds), end);
  }
  platform.dispatch.mainQueue()->post([&] {
    printer.attach(view);
    if (const auto useCase = liveAssistUseCaseFrom(options.useCase)) view.chooseUseCase(*useCase);
    view.onChange = [&] {
      if (view.status().kind == LiveAssistView::StatusKind::failed && !view.isCapturing()) {
        tell(view.status().text);
        return backends.mainLoop().quit(failed);
      }
      if (view.isCapturing() && !std::exchange(listening, true))
        tell("Listening to the microphone and to what the computer plays; Ctrl-C ends it.");
    };
    view.startCapture();
  });
  const int status = backends.mainLoop().run();
  live.reset();
  backends.endJobs();
  return status;
}

}  // namespace

int live(const LiveOptions& options) {
  LinuxPlatform backends(tell);
  const bool recorded = !options.microphone.empty() || !options.system.empty();
  return recorded ? fromRecordings(backends, options) : fromDevices(backends, options);
}

}  // namespace kestrin::cli
