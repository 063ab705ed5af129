#include "platform/audio/block_assembler.h"
#include "platform/simulated/simulated_sound_server.h"

namespace kestrin::simulated {
namespace {

/// Handle and running part are apart: the audio queue may still hold the running part when the
/// client has let go of the handle.
class Capture final : public AudioCapture {
 public:
  struct Running final : SoundServer::Client, std::enable_shared_from_this<Running> {
    Running(std::shared_ptr<SoundServer> owner, std::string device, AudioFormat format,
            CaptureOptions o)
        : server(std::move(owner)),
          microphone(std::move(device)),
          options(std::move(o)),
          begin(server->dispatch.clock().steadyNow()),
          blocks(format, options.framesPerBlock, options.onBlock) {}

    void start() {
      const auto guarded = [weak = weak_from_this()](void (Running::*step)()) {
        return [weak, step] {
          if (auto self = weak.lock()) (self.get()->*step)();
        };
      };
      first = server->dispatch.after(server->queue, server->firstData, guarded(&Running::began));
      deadline = server->dispatch.after(server->queue, options.firstDataDeadline,
                                        guarded(&Running::missed));
    }
    // From here on the audio queue.
    void began() {
      deliver();
      timer = server->dispatch.every(server->queue, server->fragment, [weak = weak_from_this()] {
        if (auto self = weak.lock()) self->deliver();
      });
    }
    void missed() {
      if (!heard) serverEnds(AudioStop::noFirstData);
    }
    void deliver() {
      if (!alive) return;
      const Duration passed = server->dispatch.clock().steadyNow() - begin;
      const int64_t now = passed.count() / 1000 * blocks.format().sampleRate / 1'000'000;
      std::vector<float> samples;
      if (!readUpTo(now, samples)) return;
      if (!heard) {
        heard = true;
        if (options.onFirstData) options.onFirstData();
      }
      blocks.push(samples.data(), samples.size() / size_t(blocks.format().channels));
    }
    /// False while the device gives nothing.
    bool readUpTo(int64_t now, std::vector<float>& samples) {
      const std::lock_guard lock(server->mutex);
      const bool system = options.source == AudioSource::systemAudio;
      const Microphone* device = system ? nullptr : server->find(microphone);
      const bool silent = !system && (!device || device->suspended);
      const int64_t from = std::exchange(position, std::max(position, now));
      if (silent || position == from) return false;
      // Our own output is left out of what the system plays by being deaf meanwhile.
      if (system && server->playing > 0) {
        samples.assign(size_t(position - from), 0.0F);
      } else {
        samples = (system ? server->systemLine : *device->line).read(begin, from, position);
      }
      if (blocks.format().channels > 1) samples = onAllChannels(samples);
      return true;
    }
    std::vector<float> onAllChannels(const std::vector<float>& mono) const {
      std::vector<float> samples;
      samples.reserve(mono.size() * size_t(blocks.format().channels));
      for (const float sample : mono)
        samples.insert(samples.end(), size_t(blocks.format().channels), sample);
      return samples;
    }
    void end() {
      alive = false;
      timer.reset();
      first.reset();
      deadline.reset();
      blocks.flush();
    }
    void serverEnds(AudioStop why) override {
      if (!alive) return;
      end();
      if (options.onStopped) options.onStopped(why);
    }
    bool uses(const std::string& id) const override { return !id.empty() && microphone == id; }
    bool isPlayback() const override { return false; }

    const std::shared_ptr<SoundServer> server;
    const std::string microphone;
    const CaptureOptions options;
    const SteadyTime begin;
    BlockAssembler blocks;
    TimerHandle first, timer, deadline;
    int64_t position = 0;  ///< frames since `begin`
    bool heard = false;
    bool alive = true;
  };

  explicit Capture(std::shared_ptr<Running> running) : running_(std::move(running)) {}
  ~Capture() override {
    onAudioQueue([this] {
      if (running_->alive) running_->end();
    });
  }
  AudioFormat format() const override { return running_->blocks.format(); }
  void stop() override {
    onAudioQueue([this] {
      running_->deliver();
      if (running_->alive) running_->end();
    });
  }

 private:
  void onAudioQueue(const Job& job) {
    const QueueRef& queue = running_->server->queue;
    if (queue->isCurrent()) {
      job();
    } else {
      queue->sync(job);
    }
  }

  std::shared_ptr<Running> running_;
};

class Playback final : public AudioPlayback {
 public:
  struct Running final : SoundServer::Client {
    /// True for the one who ends it.
    bool leave(bool SimulatedAudio::Played::*how) {
      const std::lock_guard lock(server->mutex);
      if (!alive) return false;
      alive = false;
      --server->playing;
      if (how) server->played[index].*how = true;
      return true;
    }
    void end(bool completely) {
      if (!leave(completely ? &SimulatedAudio::Played::ended : nullptr)) return;
      if (onEnd) onEnd(completely);
    }
    void serverEnds(AudioStop) override { end(false); }
    bool uses(const std::string&) const override { return false; }
    bool isPlayback() const override { return true; }

    std::shared_ptr<SoundServer> server;
    std::function<void(bool)> onEnd;
    size_t index = 0;
    bool alive = true;
  };

  Playback(std::shared_ptr<Running> running, TimerHandle end)
      : running_(std::move(running)), end_(std::move(end)) {}
  ~Playback() override { stop(); }
  void stop() override {
    end_.reset();
    running_->leave(&SimulatedAudio::Played::stopped);
  }
  void setVolume(float volume) override {
    const std::lock_guard lock(running_->server->mutex);
    running_->server->played[running_->index].volume = std::clamp(volume, 0.0F, 1.0F);
  }

 private:
  std::shared_ptr<Running> running_;
  TimerHandle end_;
};

}  // namespace

std::unique_ptr<AudioCapture> openCapture(const std::shared_ptr<SoundServer>& server,
                                          const std::string& microphone, AudioFormat format,
                                          CaptureOptions options) {
  auto running = std::make_shared<Capture::Running>(server, microphone, format, std::move(options));
  {
    const std::lock_guard lock(server->mutex);
    server->add(running);
  }
  running->start();
  return std::make_unique<Capture>(std::move(running));
}

std::unique_ptr<AudioPlayback> openPlayback(const std::shared_ptr<SoundServer>& server,
                                            const Bytes& bytes, const wav::Sound& sound,
                                            float volume, std::function<void(bool)> onEnd) {
  auto running = std::make_shared<Playback::Running>();
  running->server = server;
  running->onEnd = std::move(onEnd);
  {
    const std::lock_guard lock(server->mutex);
    running->index = server->played.size();
    server->played.push_back({bytes, std::clamp(volume, 0.0F, 1.0F)});
    ++server->playing;
    server->add(running);
  }
  auto end = server->dispatch.after(server->queue,
                                    std::chrono::microseconds(int64_t(sound.seconds() * 1e6)),
                                    [running] { running->end(true); });
  return std::make_unique<Playback>(std::move(running), std::move(end));
}

}  // namespace kestrin::simulated
