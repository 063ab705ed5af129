#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "companion/http/server.h"
#include "companion/research/research_job.h"
#include "platform/files.h"

namespace kestrin::research {

/// Research over HTTP, on the agent's port: `POST /research/stream`, and jobs that go on by
/// themselves with `POST /research/start` and `GET /research/<id>/status`.
class ResearchService {
 public:
  struct Options {
    std::string searchUrl;  ///< where a request names none
    std::string hostedModelUrl;
    /// Whether a page at this address may be fetched.
    std::function<bool(std::string_view address)> admits;
  };
  /// Keeps a finished job's answer for its user; from any thread.
  using Keep = std::function<void(const std::string& id, const ResearchQuestion& question,
                                  const std::string& summary, const Json& sources)>;

  /// `http` reaches the search service, `webHttp` fetches pages and serves nothing else. All of
  /// these must outlive this. `log` gets one line a failure, from any thread.
  ResearchService(Dispatch& dispatch, Http& http, Http& webHttp, agent::LanguageModel& model,
                  Random& random, Options options, std::function<void(std::string)> log);
  /// Ends every job. The server must have gone before.
  ~ResearchService();

  /// Before `addRoutes`; without them there are no records, and background answers are kept
  /// nowhere.
  void useRecords(RecordSearch records, Keep keep);
  void addRoutes(server::Server& server);

 private:
  struct Jobs;

  std::optional<ResearchQuestion> questionIn(const server::Request& request,
                                             const server::Responder& responder) const;
  ResearchJob::Tools tools() const;
  void stream(const server::Request& request, const server::Responder& responder);
  void startJob(const server::Request& request, const server::Responder& responder);
  void answerStatus(const server::Request& request, const server::Responder& responder) const;

  Dispatch& dispatch_;
  agent::LanguageModel& model_;
  Random& random_;
  const Options options_;
  const std::function<void(std::string)> log_;
  const QueueRef queue_;
  const std::unique_ptr<SearchProvider> search_;
  const std::unique_ptr<PageFetcher> pages_;
  RecordSearch records_;
  Keep keep_;
  const std::shared_ptr<Jobs> jobs_;
};

}  // namespace kestrin::research
