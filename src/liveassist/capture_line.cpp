#include "liveassist/capture_line.h"

#include <utility>
#include <vector>

namespace kestrin {
namespace {

/// Empty when there is none, or when the server does not say.
std::string defaultMicrophone(Audio& audio) {
  for (const auto& device : audio.inputDevices().value_or(std::vector<AudioDevice>{}))
    if (device.isDefault) return device.id;
  return {};
}

Status checkFormat(Audio& audio, const AudioFormat& format) {
  if (format.sampleRate > 0 && format.channels > 0) return {};
  // Without a server the microphone is not to blame.
  if (auto server = audio.available(); !server) return server;
  return fail("LiveAssist", 1,
              "Invalid mic format: " + std::to_string(format.sampleRate) + " Hz, " +
                  std::to_string(format.channels) + " ch");
}

CaptureLine::Opened openNow(Audio& audio, CaptureOptions options) {
  CaptureLine::Opened opened;
  if (options.source == AudioSource::microphone) {
    opened.defaultDevice = defaultMicrophone(audio);
    opened.format = audio.inputFormat({});
    opened.status = checkFormat(audio, opened.format);
    if (!opened.status) return opened;
  }
  auto capture = audio.capture(std::move(options));
  if (capture) {
    opened.capture = std::move(*capture);
  } else {
    opened.status = fail(capture.error());
  }
  return opened;
}

}  // namespace

CaptureLine::CaptureLine(Dispatch& dispatch, Audio& audio, QueueRef openQueue, Setup setup)
    : dispatch_(dispatch),
      audio_(audio),
      openQueue_(std::move(openQueue)),
      setup_(std::move(setup)) {}

CaptureLine::~CaptureLine() { close(); }

void CaptureLine::open(std::function<void(const Opened&)> done) {
  close();
  isOpening_ = true;
  const uint64_t number = *number_;
  auto adopt = lifetime_.guard(
      [this, number, done = std::move(done)](Opened& result) { opened(number, result, done); });
  openQueue_->post([&audio = audio_, options = options(number), adopt = std::move(adopt),
                    main = dispatch_.mainQueue()] {
    // The only reference goes along: what nobody wants any more is closed on the main queue.
    main->post([adopt, result = openNow(audio, options)]() mutable { adopt(result); });
  });
}

CaptureOptions CaptureLine::options(uint64_t number) {
  CaptureOptions options;
  options.source = setup_.source;
  options.framesPerBlock = setup_.framesPerBlock;
  options.firstDataDeadline = setup_.firstDataDeadline;
  options.onBlock = [wanted = number_, number, handle = setup_.makeBlockHandler()](
                        const float* samples, int frames, const AudioFormat& format) {
    if (*wanted == number) handle(samples, frames, format);
  };
  options.onStopped =
      [main = dispatch_.mainQueue(), number,
       told = std::function<void(uint64_t, AudioStop)>(
           lifetime_.guard([this](uint64_t which, AudioStop why) { ended(which, why); }))](
          AudioStop why) { main->post([told, number, why] { told(number, why); }); };
  return options;
}

void CaptureLine::opened(uint64_t number, Opened& result,
                         const std::function<void(const Opened&)>& done) {
  if (number != *number_) return;
  isOpening_ = false;
  capture_ = std::exchange(result.capture, nullptr);
  device_ = result.defaultDevice;
  done(result);
}

void CaptureLine::close() {
  // Closing delivers the partial block, which is still wanted.
  capture_.reset();
  ++*number_;
  device_.clear();
  isOpening_ = hasEnded_ = false;
}

void CaptureLine::ended(uint64_t number, AudioStop why) {
  if (number != *number_) return;
  hasEnded_ = true;
  if (setup_.onEnded) setup_.onEnded(why);
}

void CaptureLine::checkDefault() {
  if (isOpening_ || !capture_) return;
  auto found = lifetime_.guard([this, number = number_->load()](const std::string& device) {
    defaultFound(number, device);
  });
  openQueue_->post([&audio = audio_, found, main = dispatch_.mainQueue()] {
    main->post([found, device = defaultMicrophone(audio)]() mutable { found(device); });
  });
}

void CaptureLine::defaultFound(uint64_t number, const std::string& device) {
  if (number != *number_ || device.empty() || device_.empty() || device == device_) return;
  // Told once for each capture.
  device_.clear();
  if (setup_.onDefaultChanged) setup_.onDefaultChanged();
}

}  // namespace kestrin
