#include "sound/audio_world.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/audio/wav.h"
#include "platform/dispatch/simulation.h"
#include "platform/linux/pulse_audio.h"
#include "platform/simulated/simulated_audio.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

pid_t spawn(const std::string& command, int input = -1, int output = -1) {
  const pid_t child = fork();
  if (child != 0) return child;
  if (input >= 0) dup2(input, 0);
  if (output >= 0) dup2(output, 1);
  execl("/bin/bash", "bash", "-c", command.c_str(), nullptr);
  _exit(127);
}

/// A sound server of its own for each test, so that a test may end it.
class RealAudioWorld final : public AudioWorld {
 public:
  RealAudioWorld() {
    int toChild[2], fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) abort();
    session_ = spawn(KESTRIN_SOURCE_DIR
                     "/scripts/private-sound bash -c "
                     "'echo $PULSE_SERVER $PRIVATE_SOUND_PID $PRIVATE_SOUND_DIR; read line'",
                     toChild[0], fromChild[1]);
    close(toChild[0]);
    close(fromChild[1]);
    input_ = toChild[1];
    FILE* output = fdopen(fromChild[0], "r");
    char server[256] = {}, folder[256] = {};
    if (fscanf(output, "%255s %d %255s", server, &serverPid_, folder) != 3)
      ADD_FAILURE() << "no private sound server";
    fclose(output);
    server_ = server;
    folder_ = folder;
    audio_ = makePulseAudio(server_);
  }
  ~RealAudioWorld() override {
    audio_.reset();
    for (const pid_t player : players_) {
      kill(player, SIGTERM);
      waitpid(player, nullptr, 0);
    }
    if (restarted_ > 0) {
      kill(restarted_, SIGTERM);
      waitpid(restarted_, nullptr, 0);
    }
    close(input_);
    waitpid(session_, nullptr, 0);
  }

  Audio& audio() override { return *audio_; }
  void speak(double hertz, double seconds) override { play("vmic", hertz, seconds); }
  void playElsewhere(double hertz, double seconds) override { play(output_, hertz, seconds); }
  void switchOutput() override {
    output_ = "headphones";
    control("pactl load-module module-null-sink sink_name=headphones norewinds=1 >/dev/null");
    control("pactl set-default-sink headphones");
  }
  bool outputIsMuted() override {
    return system(("PULSE_SERVER=" + server_ + " pactl get-sink-mute " + output_ + " | grep -q yes")
                      .c_str()) == 0;
  }
  void unplugMicrophone() override { control("pactl unload-module module-remap-source"); }
  void suspendMicrophone() override { control("pactl suspend-source mic 1"); }
  void stopServer() override { kill(restarted_ > 0 ? restarted_ : serverPid_, SIGKILL); }
  void startServer() override {
    // It goes to "/" and gives its own folder a private mode: the folder must be named whole.
    restarted_ =
        spawn("rm -f " + folder_ + "/socket; cd " + folder_ +
              "; PULSE_RUNTIME_PATH=$PWD PULSE_STATE_PATH=$PWD PULSE_COOKIE=$PWD/cookie exec "
              "pulseaudio -n -F private.pa --daemonize=no --use-pid-file=no "
              "--exit-idle-time=-1 --high-priority=no --realtime=no 2>log2");
    EXPECT_TRUE(waitUntil([&] { return audio_->inputFormat("mic").sampleRate > 0; }));
  }
  bool waitUntil(const std::function<bool()>& done) override {
    for (int i = 0; i < 4000; ++i) {
      if (done()) return true;
      std::this_thread::sleep_for(5ms);
    }
    return false;
  }

 private:
  void play(const std::string& sink, double hertz, double seconds) {
    const std::string path = folder_ + "/" + sink + std::to_string(players_.size()) + ".wav";
    const Bytes file = wav::write(wav::toPcm16(tone(hertz, seconds, 48000)), 48000);
    FILE* out = fopen(path.c_str(), "w");
    fwrite(file.data(), 1, file.size(), out);
    fclose(out);
    players_.push_back(spawn("exec paplay -s " + server_ + " -d " + sink + " " + path));
  }
  void control(const std::string& command) const {
    EXPECT_EQ(system(("PULSE_SERVER=" + server_ + " " + command).c_str()), 0);
  }

  pid_t session_ = 0, serverPid_ = 0, restarted_ = 0;
  int input_ = -1;
  std::string server_, folder_, output_ = "speakers";
  std::vector<pid_t> players_;
  std::unique_ptr<Audio> audio_;
};

class SimulatedAudioWorld final : public AudioWorld {
 public:
  Audio& audio() override { return audio_; }
  void speak(double hertz, double seconds) override {
    audio_.speak("mic", tone(hertz, seconds, 48000), 48000);
  }
  void playElsewhere(double hertz, double seconds) override {
    audio_.playSystemSound(tone(hertz, seconds, 48000), 48000);
  }
  void switchOutput() override {
    audio_.addOutput("headphones", "Headphones");
    EXPECT_TRUE(audio_.setDefaultOutput("headphones"));
  }
  bool outputIsMuted() override { return audio_.outputMuted(); }
  void unplugMicrophone() override { audio_.removeMicrophone("mic"); }
  void suspendMicrophone() override { audio_.setSuspended("mic", true); }
  void stopServer() override { audio_.setServerRunning(false); }
  void startServer() override { audio_.setServerRunning(true); }
  bool waitUntil(const std::function<bool()>& done) override { return world_->runUntil(done, 20s); }

 private:
  std::unique_ptr<Simulation> world_ = Simulation::make();
  SimulatedAudio audio_{*world_};
};

}  // namespace

std::unique_ptr<AudioWorld> makeRealAudioWorld() { return std::make_unique<RealAudioWorld>(); }
std::unique_ptr<AudioWorld> makeSimulatedAudioWorld() {
  return std::make_unique<SimulatedAudioWorld>();
}

std::vector<float> tone(double hertz, double seconds, int sampleRate) {
  std::vector<float> samples(size_t(seconds * sampleRate));
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] = float(0.5 * std::sin(2 * M_PI * hertz * double(i) / sampleRate));
  return samples;
}

double amplitude(const std::vector<float>& samples, double hertz, int sampleRate) {
  double re = 0, im = 0;
  for (size_t i = 0; i < samples.size(); ++i) {
    const double angle = 2 * M_PI * hertz * double(i) / sampleRate;
    re += samples[i] * std::cos(angle);
    im += samples[i] * std::sin(angle);
  }
  return samples.empty() ? 0 : 2 * std::sqrt(re * re + im * im) / double(samples.size());
}

CaptureOptions Heard::options(AudioSource source, int framesPerBlock) {
  CaptureOptions options;
  options.source = source;
  options.framesPerBlock = framesPerBlock;
  options.onFirstData = [state = state_] {
    const std::lock_guard lock(state->mutex);
    state->began = true;
  };
  options.onBlock = [state = state_](const float* samples, int frames, const AudioFormat& format) {
    const std::lock_guard lock(state->mutex);
    EXPECT_FALSE(state->stopped) << "a block after the end";
    state->blocks.push_back(frames);
    state->sampleRate = format.sampleRate;
    for (int i = 0; i < frames; ++i) state->samples.push_back(samples[i * format.channels]);
  };
  options.onStopped = [state = state_](AudioStop why) {
    const std::lock_guard lock(state->mutex);
    EXPECT_FALSE(state->stopped) << "ended twice";
    state->stopped = why;
  };
  return options;
}

std::vector<int> Heard::blocks() const {
  const std::lock_guard lock(state_->mutex);
  return state_->blocks;
}

std::vector<float> Heard::last(double seconds) const {
  const std::lock_guard lock(state_->mutex);
  const auto& all = state_->samples;
  return {all.end() -
              std::min<ptrdiff_t>(ptrdiff_t(all.size()), ptrdiff_t(seconds * state_->sampleRate)),
          all.end()};
}

double Heard::seconds() const {
  const std::lock_guard lock(state_->mutex);
  return state_->sampleRate ? double(state_->samples.size()) / state_->sampleRate : 0;
}

bool Heard::began() const {
  const std::lock_guard lock(state_->mutex);
  return state_->began;
}

std::optional<AudioStop> Heard::stopped() const {
  const std::lock_guard lock(state_->mutex);
  return state_->stopped;
}

int Heard::sampleRate() const {
  const std::lock_guard lock(state_->mutex);
  return state_->sampleRate;
}

}  // namespace kestrin::test
