#include <iostream>
#include <iterator>
#include <memory>

#include "cli/commands.h"
#include "dictation/audio_player_service.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

struct Speaker {
  LinuxPlatform backends{[](const std::string& line) { std::cerr << "kestrin: " << line << "\n"; }};
  Platform& platform = backends.platform();
  std::unique_ptr<AudioPlayback> playback;

  void end(const Error& error) {
    std::cerr << "kestrin: " << error.description << "\n";
    backends.mainLoop().quit(failed);
  }

  void speak(const std::string& text) {
    const auto wav = platform.speech.synthesise(text, {});
    if (!wav) return end(wav.error());
    auto opened = platform.audio.play(
        *wav, AudioPlayerService::preferredVolume(platform.settings), [this](bool finished) {
          if (finished) return backends.mainLoop().quit(done);
          end({"Audio", noSoundServer, "The sound server ended before the text did"});
        });
    if (!opened) return end(opened.error());
    playback = std::move(*opened);
  }
};

}  // namespace

int speak(const std::string& text) {
  const auto words = text == "-" ? std::string(std::istreambuf_iterator<char>(std::cin), {}) : text;
  Speaker speaker;
  speaker.platform.dispatch.globalQueue()->post([&] { speaker.speak(words); });
  const int status = speaker.backends.mainLoop().run();
  speaker.backends.endJobs();
  return status;
}

}  // namespace kestrin::cli
