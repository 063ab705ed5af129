// Press to the first audio received: the recorder against a bare client of the same sound server,
// in turns. Run inside scripts/private-sound (or on a desktop): press_to_audio [ROUNDS]

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <pulse/pulseaudio.h>
#include <random>
#include <thread>
#include <vector>

#include "dictation/audio_recorder.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/pulse_audio.h"
#include "platform/simulated/simulated_files.h"
#include "platform/simulated/simulated_settings.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;
using BenchClock = std::chrono::steady_clock;

double milliseconds(BenchClock::duration d) {
  return std::chrono::duration<double, std::milli>(d).count();
}

/// What any program must do at least: one record stream over a connection that stands already.
class BareClient {
 public:
  BareClient() : loop_(pa_threaded_mainloop_new()) {
    context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), "bare");
    pa_context_set_state_callback(context_, wake<pa_context>, this);
    pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
    pa_threaded_mainloop_start(loop_);
    pa_threaded_mainloop_lock(loop_);
    while (PA_CONTEXT_IS_GOOD(pa_context_get_state(context_)) &&
           pa_context_get_state(context_) != PA_CONTEXT_READY)
      pa_threaded_mainloop_wait(loop_);
    connected_ = pa_context_get_state(context_) == PA_CONTEXT_READY;
    pa_threaded_mainloop_unlock(loop_);
  }
  ~BareClient() {
    pa_threaded_mainloop_stop(loop_);
    pa_context_disconnect(context_);
    pa_context_unref(context_);
    pa_threaded_mainloop_free(loop_);
  }
  bool connected() const { return connected_; }

  double firstAudio(uint32_t rate) {
    const auto start = BenchClock::now();
    pa_threaded_mainloop_lock(loop_);
    const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, rate, 1};
    pa_stream* stream = pa_stream_new(context_, "bare", &spec, nullptr);
    got_ = false;
    pa_stream_set_read_callback(
        stream,
        [](pa_stream* s, size_t, void* self) {
          const void* data = nullptr;
          size_t bytes = 0;
          pa_stream_peek(s, &data, &bytes);
          auto& client = *static_cast<BareClient*>(self);
          if (bytes > 0 && !client.got_) {
            client.got_ = true;
            client.gotAt_ = BenchClock::now();
          }
          if (bytes > 0) pa_stream_drop(s);
          pa_threaded_mainloop_signal(client.loop_, 0);
        },
        this);
    pa_buffer_attr buffer{};
    buffer.maxlength = uint32_t(-1);
    buffer.fragsize = uint32_t(pa_usec_to_bytes(20 * PA_USEC_PER_MSEC, &spec));
    pa_stream_connect_record(stream, nullptr, &buffer, PA_STREAM_ADJUST_LATENCY);
    while (!got_) pa_threaded_mainloop_wait(loop_);
    const auto end = gotAt_;
    pa_stream_set_read_callback(stream, nullptr, nullptr);
    pa_stream_disconnect(stream);
    pa_stream_unref(stream);
    pa_threaded_mainloop_unlock(loop_);
    return milliseconds(end - start);
  }

 private:
  template <class T>
  static void wake(T*, void* self) {
    pa_threaded_mainloop_signal(static_cast<BareClient*>(self)->loop_, 0);
  }

  pa_threaded_mainloop* loop_;
  pa_context* context_;
  bool connected_ = false;
  bool got_ = false;
  BenchClock::time_point gotAt_;
};

double percentile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, size_t(part * double(values.size())))];
}

int run(int rounds) {
  const auto dispatch = ThreadsDispatch::make();
  NotificationCenter notifications;
  Logger logger(*dispatch, notifications);
  SimulatedFiles files(dispatch->clock());
  SimulatedSettings settings;
  const auto audio = makePulseAudio();
  const auto format = audio->inputFormat("");
  BareClient bare;
  if (!bare.connected() || format.sampleRate == 0) {
    fprintf(stderr, "press_to_audio: no sound server with a microphone\n");
    return 1;
  }
  AudioRecorder recorder(*dispatch, *audio, files, settings, logger);
  std::mt19937 random(1);
  std::vector<double> floor, ours;
  for (int round = 0; round < rounds; ++round) {
    // At any point of the server's own rhythm.
    const auto pause = [&] {
      std::this_thread::sleep_for(std::chrono::microseconds(5000 + random() % 40000));
    };
    pause();
    floor.push_back(bare.firstAudio(uint32_t(format.sampleRate)));
    pause();
    recorder.startRecording({}, [](const Status& started) {
      if (!started) fprintf(stderr, "press_to_audio: %s\n", started.error().description.c_str());
    });
    const auto limit = BenchClock::now() + 5s;
    while (!recorder.firstSoundAfter() && BenchClock::now() < limit)
      std::this_thread::sleep_for(1ms);
    if (!recorder.firstSoundAfter()) {
      fprintf(stderr, "press_to_audio: no sound within 5 s\n");
      return 1;
    }
    ours.push_back(double(recorder.firstSoundAfter()->count()) / 1e6);
    recorder.stopRecordingWithPCM();
    dispatch->mainLoop().drain();
  }
  printf("press to first audio, %d rounds in turns, milliseconds\n", rounds);
  printf("%-12s %10s %10s\n", "", "median", "p99");
  printf("%-12s %10.2f %10.2f\n", "bare client", percentile(floor, 0.5), percentile(floor, 0.99));
  printf("%-12s %10.2f %10.2f\n", "recorder", percentile(ours, 0.5), percentile(ours, 0.99));
  printf("%-12s %10.2f %10.2f\n", "ratio", percentile(ours, 0.5) / percentile(floor, 0.5),
         percentile(ours, 0.99) / percentile(floor, 0.99));
  return 0;
}

}  // namespace
}  // namespace kestrin

int main(int argc, char** argv) {
  return kestrin::run(argc > 1 ? std::max(1, atoi(argv[1])) : 200);
}
