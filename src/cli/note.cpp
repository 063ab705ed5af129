#include <iostream>

#include "app/core_services.h"
#include "cli/commands.h"
#include "cli/printable.h"
#include "cli/recording.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

void tell(const std::string& line) { std::cerr << printable(line) << std::endl; }

}  // namespace

int note(const NoteOptions& options) {
  LinuxPlatform backends([](const std::string& line) { tell("kestrin: " + line); });
  Platform& platform = backends.platform();
  const auto refused = [&](const Error& error) {
    if (options.json) {
      std::cout << Json::object({{"event", "error"},
                                 {"domain", error.domain},
                                 {"code", error.code},
                                 {"description", error.description}})
                       .dump()
                << std::endl;
    }
    tell("kestrin: " + error.description);
    return failed;
  };
  auto pcm = readRecording(platform.files, options.wav);
  if (!pcm) return refused(pcm.error());
  CoreServices core(platform, Endpoints::fromEnvironment());
  core.logger.setSink([](std::string_view line) { tell(std::string(line)); });
  core.notes.createNoteFromPCM(std::move(*pcm), [&](const Result<VoiceNote>& made) {
    int status = done;
    if (!made) {
      // What was understood stands in the log above.
      status = refused(made.error());
    } else if (options.json) {
      Json event = made->toJson();
      std::cout << event.set("event", "note").dump() << std::endl;
    } else {
      std::cout << printable(made->content) << std::endl;
    }
    backends.mainLoop().quit(status);
  });
  const int status = backends.mainLoop().run();
  backends.endJobs();
  return status;
}

}  // namespace kestrin::cli
