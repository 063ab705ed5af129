#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/agent/local_agent.h"
#include "companion/assist/model_feedback.h"
#include "companion/backend/backend_service.h"
#include "companion/home/home_requests.h"
#include "companion/http/server.h"
#include "companion/recogniser/transcriber.h"
#include "companion/research/public_address.h"
#include "companion/research/research_service.h"
#include "platform/linux/espeak_speech.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/posix_processes.h"

namespace kestrin {

/// What stands in for this machine's own ports in a simulated world; absent ones are the real ones.
/// All must outlive the companion.
struct CompanionPorts {
  Http* web = nullptr;  ///< fetches pages and serves nothing else
  SystemSpeech* speech = nullptr;
  Random* random = nullptr;
  recogniser::Transcriber::Loader engine;
};

struct CompanionOptions {
  std::string bindAddress = "127.0.0.1";
  /// Nothing: the service is not offered. 0: any free port.
  std::optional<uint16_t> recogniserPort = 8001;
  std::optional<uint16_t> modelPort = 8082;
  std::optional<uint16_t> agentPort = 8765;
  std::optional<uint16_t> backendPort = 8780;
  recogniser::EngineOptions engine;
  std::string storePath;                ///< of the backend's data
  std::string version;                  ///< the installed one
  std::optional<std::string> modelUrl;  ///< of a local language model
  std::string hostedModelUrl;           ///< of the hosted one
  std::string searchUrl;                ///< of a search service, where a request names none
  home::HomeService::Options home;      ///< weather and news
  /// Which addresses research may fetch pages from.
  std::function<bool(std::string_view)> admitsPageAddress = research::isPublicAddress;
  CompanionPorts ports;
};

/// The local services in one process. Stops them when it is destroyed.
class Companion {
 public:
  struct Listening {
    std::string service;
    uint16_t port = 0;
  };

  /// `log` gets one line a failure, from any thread.
  Companion(Dispatch& dispatch, Http& http, std::function<void(std::string)> log);

  /// Listens on every port, then loads the recogniser while the others answer. A store that cannot
  /// be opened is logged and leaves the backend without its routes. `onLoaded` gets the
  /// recogniser's outcome on its queue. Error: the first port that cannot be had.
  Result<std::vector<Listening>> start(const CompanionOptions& options,
                                       std::function<void(const Status&)> onLoaded);

  struct Service {
    std::string name;
    std::unique_ptr<server::Server> server;
  };
  /// The part of `start` before it listens: makes the services with their routes.
  void addServices(const CompanionOptions& options);
  /// The part after: loads the recogniser.
  void loadRecogniser(const CompanionOptions& options, std::function<void(const Status&)> onLoaded);
  const std::vector<Service>& services() const { return servers_; }

 private:
  server::Server& addServer(const CompanionOptions& options, std::string name, uint16_t port,
                            size_t bodyLimit);

  Dispatch& dispatch_;
  Http& http_;
  std::function<void(std::string)> log_;
  std::shared_ptr<HttpSession> session_;
  agent::LanguageModel model_;
  std::shared_ptr<recogniser::Transcriber> transcriber_;
  std::unique_ptr<agent::LocalAgent> agent_;
  LinuxRandom machineRandom_;
  std::unique_ptr<assist::ModelFeedback> feedback_;
  std::unique_ptr<backend::BackendService> backend_;
  /// Pages come over connections that nothing else uses.
  std::unique_ptr<Http> webHttp_;
  std::unique_ptr<research::ResearchService> research_;
  std::unique_ptr<Processes> processes_ = makePosixProcesses();
  EspeakSpeech speech_{*processes_};
  std::unique_ptr<home::HomeService> home_;
  std::unique_ptr<home::HomeRequests> homeRequests_;
  // Last, so that they stop before what they serve is taken down.
  std::vector<Service> servers_;
};

}  // namespace kestrin
