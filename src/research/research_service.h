#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "identity/device_id_manager.h"
#include "identity/firebase_auth_service.h"
#include "platform/dispatch/dispatch.h"
#include "platform/http.h"
#include "research/research_records.h"
#include "research/research_stream.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// What the agent says of a background job.
struct ResearchJobStatus {
  enum class State { running, complete, failed };
  State state = State::running;
  std::string query;  ///< of a complete job
};

/// The agent's research and the sessions that the backend keeps. The user is the signed-in one,
/// otherwise this device. Thread-safe; nothing is asked again after a failure.
///
/// Completions run on the main queue; each may be empty. Errors: domain "HTTP", and
/// "ResearchService" (ErrorCode) for answers that do not say what they should.
class ResearchService {
 public:
  enum ErrorCode { noData = 1, unreadable = 2, refused = 3 };
  static constexpr int streamSources = 8;
  static constexpr int backgroundSources = 5;
  static constexpr std::chrono::seconds streamRequestTimeout{180};
  static constexpr std::chrono::seconds streamResourceTimeout{300};
  static constexpr std::chrono::seconds jobTimeout{15};

  /// `addServices` (may be empty) adds to a question which model and which search service the user
  /// has chosen; it is called off the main queue.
  ResearchService(Dispatch& dispatch, Http& http, Logger& logger, DeviceIdManager& deviceId,
                  const FirebaseAuthService& auth, const Endpoints& endpoints,
                  std::function<void(Json&)> addServices = {});

  /// Whether the agent has an address that can be asked.
  bool isConfigured() const;
  /// Asks one question on a connection of its own. `context` holds the earlier answers. Dropping
  /// the stream cancels it, silently.
  std::shared_ptr<ResearchStream> stream(const std::string& query, const std::string& context,
                                         std::shared_ptr<ResearchStreamDelegate> delegate);

  /// Stores the session as of now; `createdAt` and `userId` are filled in.
  void saveResearchSession(ResearchSession session, std::function<void(const Status&)> completion);
  void loadResearchHistory(
      std::function<void(const Result<std::vector<ResearchSession>>&)> completion);
  /// What the backend answers is not looked at, only whether it did.
  void deleteSession(const std::string& id, std::function<void(const Status&)> completion);

  /// Hands the agent a job; its id.
  void startJob(const std::string& query,
                std::function<void(const Result<std::string>&)> completion);
  /// Whatever says neither "complete" nor "error" is a job that still runs.
  void jobStatus(const std::string& id, std::function<void(const ResearchJobStatus&)> completion);

 private:
  void withUserId(std::function<void(const std::string&)> job);
  template <class T>
  std::function<void(const T&)> onMain(std::function<void(const T&)> completion) const;

  Dispatch& dispatch_;
  Http& http_;
  Logger& logger_;
  DeviceIdManager& deviceId_;
  const FirebaseAuthService& auth_;
  const Endpoints endpoints_;
  const std::function<void(Json&)> addServices_;
  std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin
