#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "liveassist/audio_channel.h"
#include "liveassist/session_records.h"
#include "platform/files.h"
#include "platform/http.h"
#include "platform/lifetime.h"

namespace kestrin {

class LiveAssistSessionManager;

/// Called on the main queue.
class LASessionManagerDelegate {
 public:
  virtual ~LASessionManagerDelegate() = default;
  virtual void didLoadTranscripts(LiveAssistSessionManager& manager,
                                  const std::vector<Json>& transcripts,
                                  const std::string& sessionId) = 0;
  virtual void didUpdateFiles(LiveAssistSessionManager& manager,
                              const std::vector<LAAttachedFile>& files) = 0;
};

/// The client of the session store at the backend: opens and ends sessions, logs their lines, keeps
/// their files, pins, contact and last feedback there, and fetches past ones. Nothing of a session
/// is written to this machine's disk. What is sent goes out once, in order, and a failure is only
/// logged. Main queue only; must be destroyed there.
class LiveAssistSessionManager {
 public:
  static constexpr size_t mostFiles = 5;
  static constexpr size_t mostPins = 12;

  LiveAssistSessionManager(Dispatch& dispatch, Http& http, Files& files, Logger& logger,
                           std::string deviceId, std::string baseURL);

  std::weak_ptr<LASessionManagerDelegate> delegate;
  /// Tells the history view, if there is one, that `cachedSessions` is new.
  std::function<void()> onHistoryLoaded;
  /// The session has its id from now on.
  std::function<void()> onSessionStarted;
  LALiveAssistUseCase useCase = LALiveAssistUseCase::salesCall;

  /// The session exists once the answer has come; what is logged before is not stored.
  void startSession();
  void endSession();
  /// `metadata`: a line's `loggingDict`.
  void logTranscript(LAAudioChannel channel, const std::string& text, int speakerNumber,
                     const Json& metadata);
  void syncFilesToBackend();
  void updateContact(const std::string& email, const std::string& name);
  /// Before `endSession`, which forgets the id.
  void saveSessionFeedbackSnapshot(const LAFeedbackSnapshot& snapshot);

  void loadHistory();
  /// The delegate gets the lines; nobody hears of a failure.
  void loadSessionTranscripts(const std::string& sessionId);
  /// On the main queue: the session's map, or why there is none.
  void loadFullSession(const std::string& sessionId, std::function<void(Result<Json>)> completion);
  /// On the main queue. Sends the report to the session's contact.
  void emailSessionReport(const std::string& sessionId, std::function<void(Status)> completion);

  // Each of these tells the delegate and syncs.

  /// The first that there is room for; `mostFiles` in all.
  void addLocalFiles(const std::vector<std::string>& paths);
  void addDriveFile(const std::string& fileId, const std::string& name, int64_t size,
                    const std::string& mimeType);
  void removeFile(size_t index);
  void setUseForContext(const std::string& fileId, bool useForContext);
  /// In place of those attached: a stored session's, as far as they are still there.
  void restoreFiles(const std::vector<LAAttachedFile>& files);
  /// For a new session: pins go as well.
  void clearFilesAndPins();

  /// Newest first. An item whose `id` is pinned already changes nothing.
  void addPinnedItem(const Json& item);

  const std::optional<std::string>& currentSessionId() const { return currentSessionId_; }
  std::optional<Date> sessionStartTime() const { return sessionStartTime_; }
  int transcriptCount() const { return transcriptCount_; }
  const std::vector<LAAttachedFile>& attachedFiles() const { return attachedFiles_; }
  const std::vector<Json>& cachedSessions() const { return cachedSessions_; }
  const std::vector<Json>& pinnedItems() const { return pinnedItems_; }
  /// By file id; of Drive files whose type is known.
  const std::map<std::string, std::string>& fileMimeTypes() const { return fileMimeTypes_; }
  const std::string& deviceId() const { return deviceId_; }

 private:
  using Answer = std::function<void(const Result<HttpResponse>&)>;
  void post(const std::string& path, const Json& body, Answer answer);
  void get(const std::string& path, Answer answer);
  void send(HttpSession& session, HttpRequest request, Answer answer);
  /// Sends and logs "Failed to <what>: ..." when it did not arrive.
  void postAndForget(const std::string& path, const Json& body, const std::string& what);
  void sessionStarted(const Result<HttpResponse>& response);
  void attachLocal(const std::string& path);
  void attachDrive(const std::string& fileId, const std::string& name, int64_t size);
  std::string pathOf(const LAAttachedFile& stored) const;
  void filesChanged();

  Dispatch& dispatch_;
  Files& files_;
  Logger& logger_;
  const std::string deviceId_;
  const std::string baseURL_;
  const std::shared_ptr<HttpSession> ordered_;  ///< one connection: updates overtake nothing
  const std::shared_ptr<HttpSession> reads_;
  std::optional<std::string> currentSessionId_;
  std::optional<Date> sessionStartTime_;
  int transcriptCount_ = 0;
  int starts_ = 0;
  std::vector<LAAttachedFile> attachedFiles_;
  std::vector<Json> cachedSessions_;
  std::vector<Json> pinnedItems_;
  std::map<std::string, std::string> fileMimeTypes_;
  /// Name and size to path, of what was attached since the program began: the store knows no paths.
  std::map<std::pair<std::string, int64_t>, std::string> pathsSeen_;
  Lifetime lifetime_;
};

}  // namespace kestrin
