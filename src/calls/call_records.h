#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/dates/dates.h"
#include "platform/json/json.h"
#include "platform/result.h"

namespace kestrin {

enum class CallStatus { idle, ringing, connecting, connected, ended, declined, failed };
/// "idle", "ringing", ...
const char* rawValue(CallStatus status);

struct IncomingCall {
  std::string roomName, callerId, callerName;
  Json toJson() const;
  /// Empty texts where something is missing.
  static IncomingCall fromJson(const Json& json);
};

/// One call of the history, as the backend tells it.
struct CallRecord {
  std::string id, roomName, callerId, callerName, recipientId, status, direction;
  std::string createdAt;  ///< ISO 8601
  std::optional<std::string> answeredAt, endedAt, transcript, summary;
  std::optional<int64_t> duration;  ///< seconds
  std::optional<std::string> userMood, otherMood, userEmotion, otherEmotion;

  /// Domain "CallService", code 3: a text that is required is missing.
  static Result<CallRecord> fromJson(const Json& json);
  /// Whom it was with; a device's id in short form.
  std::string displayName() const;
  /// "3/2/26, 9:00 AM"; what cannot be read stands unchanged.
  std::string formattedDate() const;
  /// "1h 5m", "2m 3s", "7s"; empty without one.
  std::string formattedDuration() const;
  /// "Answered", ... with a sign; the plain word for a status nobody knows.
  std::string callStatusBadge() const;
};

struct CallGroup {
  std::string title;  ///< "TODAY", "YESTERDAY", "THIS WEEK", "EARLIER"
  std::vector<CallRecord> calls;
};
/// In the server's order within a group; empty groups are left out.
std::vector<CallGroup> groupCallsByDate(const std::vector<CallRecord>& calls, Date now);

/// "😊" for "HAPPY"; empty for a name that is none of the six.
std::string emojiForEmotion(const std::string& emotion);

/// First six characters, "…" and the last four of an id of `least` characters or more.
std::string shortId(const std::string& id, size_t least);

/// "05:09", "1:00:00".
std::string formatDuration(int64_t seconds);

}  // namespace kestrin
