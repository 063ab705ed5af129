#include "companion/companion.h"

#include "companion/agent/agent_service.h"
#include "companion/backend/google_routes.h"
#include "companion/backend/live_session_routes.h"
#include "companion/backend/memory_routes.h"
#include "companion/backend/note_routes.h"
#include "companion/backend/research_routes.h"
#include "companion/calls/call_routes.h"
#include "companion/personality/routes.h"
#include "companion/recogniser/service.h"
#include "platform/linux/curl_http.h"

namespace kestrin {

namespace {

// Half an hour of speech; a long context.
constexpr size_t mostAudioBytes = 64u << 20;
constexpr size_t mostJsonBytes = 8u << 20;
// Five documents of a conversation, as base64.
constexpr size_t mostBackendBytes = 64u << 20;
// A model that thinks sends nothing for a while.
constexpr std::chrono::milliseconds modelPatience{110'000};

void addUnavailableRoutes(server::Server& server, const std::string& why) {
  for (const char* method : {"GET", "POST", "PUT", "DELETE"}) {
    server.route(method, "/*", [why](const server::Request&, const server::Responder& responder) {
      responder.error(503, why);
    });
  }
}

}  // namespace

Companion::Companion(Dispatch& dispatch, Http& http, std::function<void(std::string)> log)
    : dispatch_(dispatch),
      http_(http),
      log_(std::move(log)),
      session_(http_.makeSession({.requestTimeout = modelPatience})),
      model_(session_) {}

server::Server& Companion::addServer(const CompanionOptions& options, std::string name,
                                     uint16_t port, size_t bodyLimit) {
  server::ServerOptions serverOptions;
  serverOptions.bindAddress = options.bindAddress;
  serverOptions.port = port;
  serverOptions.bodyLimit = bodyLimit;
  servers_.push_back({std::move(name), std::make_unique<server::Server>(dispatch_, serverOptions)});
  return *servers_.back().server;
}

void Companion::addServices(const CompanionOptions& options) {
  Random& random = options.ports.random ? *options.ports.random : machineRandom_;
  if (options.recogniserPort) {
    transcriber_ = std::make_shared<recogniser::Transcriber>(dispatch_);
    recogniser::addRoutes(addServer(options, "asr", *options.recogniserPort, mostAudioBytes),
                          dispatch_, transcriber_);
  }
  if (options.modelPort) {
    agent::addModelHealthRoutes(addServer(options, "llm", *options.modelPort, mostJsonBytes),
                                model_, options.modelUrl);
  }
  if (options.agentPort) {
    agent_ = std::make_unique<agent::LocalAgent>(session_, dispatch_.clock(),
                                                 options.hostedModelUrl, log_);
    server::Server& server = addServer(options, "agent", *options.agentPort, mostJsonBytes);
    home_ = std::make_unique<home::HomeService>(
        dispatch_, http_, options.ports.speech ? *options.ports.speech : speech_, options.home);
    home_->addRoutes(server);
    homeRequests_ = std::make_unique<home::HomeRequests>(*agent_, *home_);
    agent::addRoutes(server, *homeRequests_);
    if (!options.ports.web) webHttp_ = makeCurlHttp(dispatch_);
    research_ = std::make_unique<research::ResearchService>(
        dispatch_, http_, options.ports.web ? *options.ports.web : *webHttp_, model_, random,
        research::ResearchService::Options{options.searchUrl, options.hostedModelUrl,
                                           options.admitsPageAddress},
        log_);
    research_->addRoutes(server);
  }
  if (options.backendPort) {
    server::Server& server = addServer(options, "backend", *options.backendPort, mostBackendBytes);
    if (auto store = backend::Store::open(options.storePath)) {
      backend_ =
          std::make_unique<backend::BackendService>(dispatch_, std::move(*store), options.version);
      backend_->addRoutes(server);
      feedback_ =
          std::make_unique<assist::ModelFeedback>(dispatch_, model_, options.hostedModelUrl, log_);
      backend::addLiveSessionRoutes(server, *backend_, dispatch_.clock(), random);
      backend::addMemoryRoutes(server, *backend_, *feedback_);
      personality::addRoutes(server, *backend_, transcriber_);
      backend::addCallRoutes(server, *backend_, dispatch_.clock(), random);
      backend::addGoogleRoutes(server);
      backend::addNoteRoutes(server, *backend_, dispatch_.clock(), random);
      backend::addResearchRoutes(server, *backend_, dispatch_.clock());
      if (home_) home_->useHistory(backend::lastDictation(*backend_));
      if (research_) {
        research_->useRecords(backend::recordSearch(*backend_),
                              backend::keepResearch(*backend_, dispatch_.clock(), log_));
      }
    } else {
      // Dictation works without its history.
      log_("The backend keeps nothing: " + options.storePath + ": " + store.error().description);
      addUnavailableRoutes(server, "The backend's data cannot be opened");
    }
  }
}

void Companion::loadRecogniser(const CompanionOptions& options,
                               std::function<void(const Status&)> onLoaded) {
  if (!transcriber_) return;
  auto loader = options.ports.engine;
  if (!loader) loader = [engine = options.engine] { return recogniser::loadEngine(engine); };
  transcriber_->load(std::move(loader), std::move(onLoaded));
}

Result<std::vector<Companion::Listening>> Companion::start(
    const CompanionOptions& options, std::function<void(const Status&)> onLoaded) {
  addServices(options);
  std::vector<Listening> listening;
  for (const Service& running : servers_) {
    if (const Status status = running.server->start(); !status) return fail(status.error());
    listening.push_back({running.name, running.server->port()});
  }
  // Only now that the ports are there: a second instance must fail at once.
  loadRecogniser(options, std::move(onLoaded));
  return listening;
}

}  // namespace kestrin
