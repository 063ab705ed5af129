#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/backend/store.h"
#include "platform/dates/dates.h"
#include "platform/json/json.h"
#include "platform/result.h"

namespace kestrin::backend {

/// One line of a live session, as it came.
struct LiveLine {
  Date at;
  std::string channel;  ///< "system" or "microphone"
  std::string text;
  int64_t speakerNumber = 1;
  Json metadata = Json::object();
};

struct LiveSession {
  std::string id;
  std::string deviceId;
  Date started;
  std::optional<Date> ended;
  std::string useCase;
  std::string contactEmail;
  std::string contactName;
  Json attachedFiles = Json::array();
  Json pinnedItems = Json::array();
  std::optional<Json> feedbackSnapshot;
  std::string title;    ///< empty when the lines show no subject
  std::string summary;  ///< what was said of substance, in the words of the conversation
  int64_t microphoneCount = 0;
  int64_t systemAudioCount = 0;
  int64_t durationMilliseconds = 0;  ///< to the end, or to the last line of one that was left open
};

/// What an update sets; what is absent stays.
struct LiveSessionChange {
  std::optional<Date> ended;
  std::optional<std::string> useCase, contactEmail, contactName;
  std::optional<Json> attachedFiles, pinnedItems, feedbackSnapshot;
};

/// The live sessions of all devices in the store's file. Cheap to make; on the store's queue only.
/// Errors as the store's.
class LiveSessions {
 public:
  static constexpr int64_t mostLines = 20'000;  ///< of one session: ten hours of quick talk

  explicit LiveSessions(const Store& store) : database_(store.database()) {}

  Status start(const std::string& id, const std::string& deviceId, Date now);
  Status change(const std::string& id, const LiveSessionChange& change);
  /// False when the session has all the lines it may have.
  Result<bool> addLine(const std::string& id, const LiveLine& line);

  /// Nothing when there is no such session.
  Result<std::optional<LiveSession>> find(const std::string& id);
  /// Whose session it is; nothing when there is no such session. Cheaper than `find`.
  Result<std::optional<std::string>> deviceOf(const std::string& id);
  /// Newest first; with an e-mail address, those with this contact alone.
  Result<std::vector<LiveSession>> ofDevice(const std::string& deviceId, int64_t limit,
                                            const std::string& contactEmail = "");
  /// In the order in which they came.
  Result<std::vector<LiveLine>> lines(const std::string& id);
  /// The lines as "[YOU] text" and "[OTHER] text".
  Result<std::string> transcript(const std::string& id);

 private:
  Status describe(LiveSession& session);

  const std::shared_ptr<Database> database_;
};

}  // namespace kestrin::backend
