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
  LinuxRandom random_;
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
  struct Running {
    std::string name;
    std::unique_ptr<server::Server> server;
  };
  std::vector<Running> servers_;
};

}  // namespace kestrin
