#include <functional>
#include <iostream>

#include "app/core_services.h"
#include "app/status_line.h"
#include "cli/commands.h"
#include "cli/recording.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

/// The text is there already; the history's copy of it is worth a moment.
constexpr std::chrono::seconds reportTimeout{2};

/// What the dictation prints. Main queue only.
class Printer {
 public:
  explicit Printer(bool json) : json_(json) {}

  void status(const StatusLine& line) {
    if (json_) {
      event("status", {{"text", line.text}, {"color", statusColorName(line.color)}});
    } else {
      std::cerr << line.text << std::endl;
    }
  }
  void chunk(const std::string& text) {
    streamed_ = streamed_ || !text.empty();
    if (json_) return event("chunk", {{"text", text}});
    std::cout << text << std::flush;
  }
  void notification(const std::string& name, const Json& userInfo) {
    if (json_) event("notification", {{"name", name}, {"user_info", userInfo}});
  }
  void result(const TranscriptionResult& result) {
    if (json_) {
      return event("result", {{"text", result.text},
                              {"mode", result.mode},
                              {"auto_detected", result.autoDetected},
                              {"transcript", result.transcript}});
    }
    // A command's text does not pass through the stream.
    if (!streamed_) std::cout << result.text;
    std::cout << std::endl;
  }
  void error(const Error& error) {
    if (json_) {
      event("error",
            {{"domain", error.domain}, {"code", error.code}, {"description", error.description}});
    } else if (streamed_) {
      std::cout << std::endl;
    }
    std::cerr << "kestrin: " << error.description << std::endl;
  }

 private:
  void event(const char* name, std::initializer_list<std::pair<std::string, Json>> members) {
    auto line = Json::object({{"event", name}});
    for (const auto& [key, value] : members) line.set(key, value);
    std::cout << line.dump() << std::endl;
  }

  bool json_;
  bool streamed_ = false;
};

/// One dictation on the main loop; returns the exit status.
int runDictation(LinuxPlatform& backends, const DictateOptions& options, Bytes pcm,
                 Printer& printer) {
  auto& platform = backends.platform();
  CoreServices core(platform, Endpoints::fromEnvironment());
  core.logger.setSink([](std::string_view line) { std::cerr << line << std::endl; });
  const auto main = platform.dispatch.mainQueue();
  const auto watching =
      platform.notifications.observeAll([&](const std::string& name, const Json& userInfo) {
        // The log's own bookkeeping is no event of the dictation.
        if (main->isCurrent() && !name.starts_with("log")) printer.notification(name, userInfo);
      });

  CapturedContext context;
  context.appName = options.app;
  context.windowTitle = options.title;
  context.audioDurationMs = static_cast<int>(pcm.size() / 32);
  printer.status({"⏳ Processing... (1 stream)", StatusColor::blue});
  bool first = true;
  core.transcription->transcribePCMStreaming(
      pcm, options.mode, context, core.authToken(),
      [&, main](const std::string& text) {
        main->post([&, text] {
          if (std::exchange(first, false)) {
            printer.status({"📝 Streaming...", StatusColor::primary});
          }
          printer.chunk(text);
        });
      },
      [&, main](Result<TranscriptionResult> result) {
        main->post([&, result] {
          if (result) {
            printer.result(*result);
            printer.status({"✅ Done! Ready for next", StatusColor::primary});
          } else {
            printer.status({"❌ " + result.error().description, StatusColor::red});
            printer.error(result.error());
          }
          backends.mainLoop().quit(result ? done : failed);
        });
      });
  const int status = backends.mainLoop().run();
  core.transcription->waitForBackendReports(reportTimeout);
  backends.endJobs();
  return status;
}

}  // namespace

int dictate(const DictateOptions& options) {
  LinuxPlatform backends([](const std::string& line) { std::cerr << "kestrin: " << line << "\n"; });
  Printer printer(options.json);
  auto pcm = readRecording(backends.platform().files, options.wav);
  if (!pcm) {
    printer.error(pcm.error());
    return failed;
  }
  return runDictation(backends, options, std::move(*pcm), printer);
}

}  // namespace kestrin::cli
