// kestrin-companion: the local services in one process.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "companion/backend/backup.h"
#include "companion/companion.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/curl_http.h"
#include "platform/text/text.h"

using namespace kestrin;

namespace {

constexpr const char* hostedModelUrl = "https://generativelanguage.googleapis.com";

struct CommandLine {
  CompanionOptions companion;
  std::string ports;
  std::string services = "asr,llm,agent,backend";
  int portOffset = 0;
  std::string exportTo, importFrom;
  bool erase = false;
  std::string model = "base";
  std::string modelUrl;
};

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// share/kestrin/models beside the folder of this program, in the build folder as in an
/// installation.
std::string modelsFolder() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path().parent_path() / "share/kestrin/models").string();
}

std::string storePath() {
  const std::string data = variable("XDG_DATA_HOME");
  return (data.empty() ? variable("HOME") + "/.local/share" : data) +
         "/kestrin-companion/store.sqlite";
}

/// "8001,8082,8765,8780", then the offset, then the services that are left out.
std::string choosePorts(CommandLine& line) {
  CompanionOptions& options = line.companion;
  std::optional<uint16_t>* const places[] = {&options.recogniserPort, &options.modelPort,
                                             &options.agentPort, &options.backendPort};
  constexpr const char* names[] = {"asr", "llm", "agent", "backend"};
  const auto given = text::split(line.ports, ",");
  if (!line.ports.empty() && given.size() != 4) return "--ports takes four numbers with commas";
  const auto services = text::split(line.services, ",");
  for (const std::string& service : services) {
    if (std::find(std::begin(names), std::end(names), service) == std::end(names)) {
      return "\"" + service + "\" is none of asr, llm, agent, backend";
    }
  }
  for (size_t i = 0; i < 4; ++i) {
    long port = **places[i];
    if (!line.ports.empty()) {
      char* end = nullptr;
      port = std::strtol(given[i].c_str(), &end, 10);
      if (given[i].empty() || *end != '\0') return "\"" + given[i] + "\" is no port";
    }
    if (port != 0) port += line.portOffset;
    if (port < 0 || port > 65535) return std::to_string(port) + " is no port";
    *places[i] = static_cast<uint16_t>(port);
    const bool wanted = std::find(services.begin(), services.end(), names[i]) != services.end();
    if (!wanted) places[i]->reset();
  }
  return "";
}

void describe(CLI::App& app, CommandLine& line) {
  app.add_option("--ports", line.ports,
                 "ports of asr, llm, agent and backend; 0 takes any free one")
      ->envname("KESTRIN_COMPANION_PORTS")
      ->type_name("ASR,LLM,AGENT,BACKEND");
  app.add_option("--port-offset", line.portOffset, "added to each port");
  app.add_option("--services", line.services, "which of asr, llm, agent, backend to offer")
      ->envname("KESTRIN_COMPANION_SERVICES");
  app.add_option("--bind", line.companion.bindAddress, "IPv4 address to listen on")
      ->envname("KESTRIN_COMPANION_BIND");
  app.add_option("--model", line.model, "speech model: base, or tiny for little memory")
      ->envname("KESTRIN_RECOGNISER_MODEL")
      ->check(CLI::IsMember({"base", "tiny"}));
  app.add_option("--models", line.companion.engine.modelsFolder, "folder of the speech models")
      ->envname("KESTRIN_RECOGNISER_MODELS");
  app.add_option("--store", line.companion.storePath, "file of the backend's data");
  app.add_option("--llm-url", line.modelUrl,
                 "a local server with the chat-completions interface, for the health of llm")
      ->envname("KESTRIN_COMPANION_LLM_URL");
  app.add_option("--hosted-llm-url", line.companion.hostedModelUrl, "address of the hosted model")
      ->envname("KESTRIN_HOSTED_LLM_URL");
  app.add_option("--search-url", line.companion.searchUrl,
                 "a search service with the interface of SearXNG, for research")
      ->envname("KESTRIN_SEARCH_URL");
  app.add_option("--weather-url", line.companion.home.weatherUrl,
                 "a weather service with the interface of wttr.in")
      ->envname("KESTRIN_WEATHER_URL");
  app.add_option("--news-url", line.companion.home.newsUrls, "an RSS or Atom feed; may be repeated")
      ->envname("KESTRIN_NEWS_URL");
  app.add_option("--export", line.exportTo, "writes a copy of the backend's data and ends")
      ->type_name("FILE");
  app.add_option("--import", line.importFrom, "takes the data of such a copy and ends")
      ->type_name("FILE");
  app.add_flag("--erase", line.erase, "removes the backend's data and ends");
  app.set_version_flag("--version", "kestrin-companion " KESTRIN_VERSION);
}

/// A line of the program, whole even when two threads print.
void print(std::ostream& stream, const std::string& line) {
  static std::mutex mutex;
  std::lock_guard lock(mutex);
  stream << line << std::endl;
}

/// Serves the main queue until one of `signals` (blocked in every thread) comes.
void runUntilSignal(MainLoop& loop, const sigset_t& signals) {
  const int signalFd = signalfd(-1, &signals, SFD_CLOEXEC);
  pollfd watched[2] = {{loop.wakeDescriptor(), POLLIN, 0}, {signalFd, POLLIN, 0}};
  while (watched[1].revents == 0) {
    if (poll(watched, 2, -1) < 0 && errno != EINTR) break;
    if (watched[0].revents != 0) loop.drain();
  }
  close(signalFd);
}

/// What is asked of the data alone; nothing when the services are to run.
std::optional<int> maintain(const CommandLine& line) {
  const std::string& store = line.companion.storePath;
  Status outcome;
  if (!line.exportTo.empty()) {
    outcome = backend::exportStore(store, line.exportTo);
  } else if (!line.importFrom.empty()) {
    outcome = backend::importStore(store, line.importFrom);
  } else if (line.erase) {
    outcome = backend::eraseStore(store);
  } else {
    return std::nullopt;
  }
  if (!outcome) print(std::cerr, "kestrin-companion: " + outcome.error().description);
  return outcome ? 0 : 1;
}

int run(CommandLine& line) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  // Before any thread is made, so that all of them inherit it.
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);

  const auto dispatch = ThreadsDispatch::make();
  const auto http = makeCurlHttp(*dispatch);
  Companion companion(*dispatch, *http,
                      [](const std::string& message) { print(std::cerr, message); });
  const SteadyTime began = dispatch->clock().steadyNow();
  const auto onLoaded = [&clock = dispatch->clock(), began,
                         model = line.model](const Status& status) {
    if (!status)
      return print(std::cerr, "The recogniser is not available: " + status.error().description);
    const auto took =
        std::chrono::duration_cast<std::chrono::milliseconds>(clock.steadyNow() - began);
    print(std::cout,
          "ready: " + model + " speech model loaded in " + std::to_string(took.count()) + " ms");
  };
  const auto listening = companion.start(line.companion, onLoaded);
  if (!listening) {
    print(std::cerr, "kestrin-companion: " + listening.error().description);
    return 1;
  }
  std::string ports = "listening:";
  for (const auto& service : *listening)
    ports += " " + service.service + "=" + std::to_string(service.port);
  print(std::cout, ports);
  if (!line.companion.recogniserPort) print(std::cout, "ready: without a recogniser");
  runUntilSignal(dispatch->mainLoop(), signals);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line;
  line.companion.engine.modelsFolder = modelsFolder();
  line.companion.storePath = storePath();
  line.companion.version = KESTRIN_VERSION;
  line.companion.hostedModelUrl = hostedModelUrl;
  CLI::App app("The local services of Kestrin: recogniser, agent, backend, in one process.",
               "kestrin-companion");
  describe(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  if (const auto status = maintain(line)) return *status;
  if (const std::string problem = choosePorts(line); !problem.empty()) {
    std::cerr << "kestrin-companion: " << problem << "\n";
    return 2;
  }
  line.companion.engine.size =
      line.model == "tiny" ? recogniser::ModelSize::tiny : recogniser::ModelSize::base;
  if (!line.modelUrl.empty()) line.companion.modelUrl = line.modelUrl;
  return run(line);
}
