#pragma once

#include <optional>
#include <string>
#include <vector>

#include "companion/backend/store.h"

namespace kestrin::backend {

/// One call as the backend keeps it.
struct StoredCall {
  std::string room, callerId, callerName, recipientId;
  std::string callerToken, recipientToken;  ///< of our own rooms
  Date created;
  std::optional<Date> answered, ended;
  std::string reason;  ///< why it ended

  bool isOf(const std::string& user) const { return user == callerId || user == recipientId; }
  const std::string& tokenOf(const std::string& user) const {
    return user == callerId ? callerToken : recipientToken;
  }
  /// "ringing", "answered", "ended", "declined" or "timeout".
  std::string status(Date now) const;
};

/// What one side kept of a call.
struct CallNote {
  std::string transcript, summary, userMood, otherMood, userEmotion, otherEmotion;
  int64_t duration = 0;  ///< seconds
};

/// A call as one side sees it.
struct CallOfUser {
  StoredCall call;
  std::optional<CallNote> note;
};

struct Presence {
  std::string deviceId, userName;
  Date lastSeen;
};

/// Somebody who may be called, and how often that was done.
struct Contact {
  std::string name;
  int64_t calls = 0;
};

/// Calls and presence in the backend's file. As thread-safe as its Store, which must outlive it.
class CallStore {
 public:
  /// So long an unanswered call rings.
  static constexpr std::chrono::seconds ringing{30};
  /// Three heartbeats.
  static constexpr std::chrono::seconds online{90};

  explicit CallStore(Store& store) : store_(store) {}

  Status add(const StoredCall& call);
  /// Nothing when there is no such call.
  Result<std::optional<StoredCall>> find(const std::string& room);
  /// A call that rings for the user, once: whoever got it is not offered it again.
  Result<std::optional<StoredCall>> offer(const std::string& user, Date now);
  /// Without effect on a call that was answered or ended before.
  Status answer(const std::string& room, Date now);
  Status end(const std::string& room, const std::string& reason, Date now);
  /// Newest first, each with the user's own note.
  Result<std::vector<CallOfUser>> history(const std::string& user, int64_t limit);
  Status keepNote(const std::string& room, const std::string& user, const CallNote& note);

  Status heartbeat(const std::string& device, const std::string& userName, Date now);
  Status offline(const std::string& device);
  Result<std::vector<Presence>> onlineSince(Date since, const std::string& except);
  /// A device's id as it is, or the one device of that name; nothing when nobody is meant, or
  /// several are.
  Result<std::optional<std::string>> resolve(const std::string& recipient);
  /// Whom the user has called or was called by, the most frequent first.
  Result<std::vector<Contact>> frequent(const std::string& user, int64_t limit);
  /// Names that contain `part`, in any case, without the user's own.
  Result<std::vector<Contact>> search(const std::string& user, const std::string& part,
                                      int64_t limit);

 private:
  Store& store_;
};

}  // namespace kestrin::backend
