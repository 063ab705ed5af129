#include "calls/call_recording.h"

#include <utility>
#include <vector>

#include "liveassist/mic_converter.h"
#include "platform/audio/wav.h"
#include "platform/text/text.h"

namespace kestrin {

/// Everything on `queue`, in order.
struct CallRecording::State : std::enable_shared_from_this<State> {
  State(Dispatch& dispatch, Audio& audio, Files& files, Logger& logger)
      : queue(dispatch.makeQueue("com.kestrin.callrecording")),
        audio(audio),
        files(files),
        logger(logger) {}

  void failed(const Error& error) {
    logger.print("❌ Call recording failed: " + error.description);
    capture.reset();
    path.reset();
  }
  void begin(const std::string& to) {
    // Its end would never be told otherwise, should the program be killed.
    if (const auto made = files.writeAtomic(to, wav::write("")); !made) return failed(made.error());
    path = to;
    CaptureOptions options;
    options.onBlock = [weak = weak_from_this()](const float* samples, int frames,
                                                const AudioFormat& format) {
      const auto self = weak.lock();
      if (!self) return;
      std::vector<float> block(samples, samples + size_t(frames) * size_t(format.channels));
      self->queue->post([self, block = std::move(block), format] { self->write(block, format); });
    };
    auto opened = audio.capture(std::move(options));
    if (!opened) return failed(opened.error());
    capture = std::move(*opened);
  }
  void write(const std::vector<float>& block, const AudioFormat& format) {
    if (!path) return;
    if (!converter) converter.emplace(format);
    const Bytes pcm = converter->convert(block);
    if (pcm.empty()) return;
    if (const auto written = files.append(*path, pcm); !written) return failed(written.error());
    bytes += pcm.size();
  }
  /// The lengths in the file's head are filled in only now.
  std::optional<std::string> finish() {
    if (!path) return {};
    const std::string file = *std::exchange(path, std::nullopt);
    if (bytes == 0) {
      (void)files.remove(file);
      return {};
    }
    if (const auto whole = files.read(file)) {
      const size_t head = wav::write("").size();
      if (const auto written = files.writeAtomic(file, wav::write(whole->substr(head))); !written)
        logger.print("❌ Call recording failed: " + written.error().description);
    }
    return file;
  }

  const QueueRef queue;
  Audio& audio;
  Files& files;
  Logger& logger;
  std::optional<std::string> path;
  std::unique_ptr<AudioCapture> capture;
  std::optional<MicConverter> converter;
  size_t bytes = 0;
};

CallRecording::CallRecording(Dispatch& dispatch, Audio& audio, Files& files, Logger& logger)
    : dispatch_(dispatch), state_(std::make_shared<State>(dispatch, audio, files, logger)) {}

CallRecording::~CallRecording() { stop({}); }

void CallRecording::start(const std::string& path) {
  state_->queue->post([state = state_, path] { state->begin(path); });
}

void CallRecording::stop(std::function<void(const std::optional<std::string>&)> completion) {
  state_->queue->post(
      [state = state_, main = dispatch_.mainQueue(), completion = std::move(completion)] {
        if (state->capture) state->capture->stop();
        state->capture.reset();
        // After the blocks that the stop has brought.
        state->queue->post([state, main, completion] {
          const auto file = state->finish();
          if (completion) main->post([completion, file] { completion(file); });
        });
      });
}

std::string callRecordingPath(Files& files, const std::string& roomName, Date now) {
  std::string room;
  for (const char c : roomName) room += c == '/' || c == '\0' ? '-' : c;
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
  return files.documentsFolder() + "/Kestrin/CallRecordings/call_" + room + "_" +
         std::to_string(seconds) + ".wav";
}

}  // namespace kestrin
