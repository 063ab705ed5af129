#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/http.h"
#include "platform/simulated/fault_plan.h"
#include "platform/simulated/scripted_reply.h"

namespace kestrin {

/// A request as the scripted servers saw it.
struct SeenRequest {
  enum class State { running, answered, failed, cancelled };
  HttpRequest request;
  SteadyTime at;
  State state = State::running;
};

/// HTTP in virtual time: a set of scripted servers. Time-outs, connections per host, cancellation
/// and error descriptions are as with the real backend. Where nothing is scripted for a host,
/// nobody listens there; where something else is scripted for it, the answer is 404.
///
/// Fault sites: "http.data", "http.stream", "http.download" (the connection is refused) and
/// "http.arrival" (it is lost before a piece or the end).
class SimulatedHttp final : public Http {
 public:
  using Handler = std::function<ScriptedReply(const HttpRequest&)>;

  /// Downloads are written to `files`. `dispatch`, `faults` and `files` must outlive this.
  explicit SimulatedHttp(Dispatch& dispatch, FaultPlan* faults = nullptr, Files* files = nullptr);
  ~SimulatedHttp() override;

  std::shared_ptr<HttpSession> makeSession(const HttpSessionConfiguration& configuration) override;

  /// Answers requests of `method` ("*": any) whose address without the scheme
  /// ("127.0.0.1:8001/health", with or without its query) matches the shell pattern `where`. The
  /// last matching route wins. The handler runs when the request is made, on the caller's thread.
  void on(const std::string& method, const std::string& where, Handler handler);
  void on(const std::string& method, const std::string& where, ScriptedReply reply);
  /// As `on`, for the next such request only; several are used in the order given, before any `on`.
  void once(const std::string& method, const std::string& where, ScriptedReply reply);

  /// Everything asked so far, in order; `where` as in `on`.
  std::vector<SeenRequest> requests(const std::string& where = "*") const;
  size_t running() const;
  /// From now on a request is forgotten at its end: hours of them would fill the memory.
  void forgetDone();

  class Core;

 private:
  std::shared_ptr<Core> core_;
};

}  // namespace kestrin
