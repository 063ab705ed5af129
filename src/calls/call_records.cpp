#include "calls/call_records.h"

#include <array>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t longestCallId = 20, shortHead = 6, shortTail = 4;

std::string day(Date date) { return dates::format(date, "yyyy-MM-dd"); }

std::string padded(int64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); }

/// Which of the four groups.
size_t groupOf(const CallRecord& call, Date now) {
  const auto at = dates::parseIso8601(call.createdAt);
  if (!at) return 3;
  const std::string today = day(now);
  if (day(*at) == today) return 0;
  if (day(*at) == dates::dayBefore(today)) return 1;
  return now - *at < std::chrono::hours(7 * 24) ? 2 : 3;
}

}  // namespace

const char* rawValue(CallStatus status) {
  constexpr std::array names{"idle",  "ringing",  "connecting", "connected",
                             "ended", "declined", "failed"};
  return names[static_cast<size_t>(status)];
}

Json IncomingCall::toJson() const {
  return Json::object({{"roomName", roomName}, {"callerId", callerId}, {"callerName", callerName}});
}

IncomingCall IncomingCall::fromJson(const Json& json) {
  return {json.stringAt("roomName", ""), json.stringAt("callerId", ""),
          json.stringAt("callerName", "")};
}

Result<CallRecord> CallRecord::fromJson(const Json& json) {
  using Field = std::pair<std::string CallRecord::*, const char*>;
  using Optional = std::pair<std::optional<std::string> CallRecord::*, const char*>;
  CallRecord out;
  for (const auto& [field, key] :
       {Field{&CallRecord::id, "id"}, Field{&CallRecord::roomName, "roomName"},
        Field{&CallRecord::callerId, "callerId"}, Field{&CallRecord::callerName, "callerName"},
        Field{&CallRecord::recipientId, "recipientId"}, Field{&CallRecord::status, "status"},
        Field{&CallRecord::direction, "direction"}, Field{&CallRecord::createdAt, "createdAt"}}) {
    auto value = json.stringAt(key);
    if (!value) {
      return fail("CallService", 3,
                  std::string("A call's \"") + key + "\" is missing or of another type");
    }
    out.*field = std::move(*value);
  }
  for (const auto& [field, key] :
       {Optional{&CallRecord::answeredAt, "answeredAt"}, Optional{&CallRecord::endedAt, "endedAt"},
        Optional{&CallRecord::transcript, "transcript"}, Optional{&CallRecord::summary, "summary"},
        Optional{&CallRecord::userMood, "userMood"}, Optional{&CallRecord::otherMood, "otherMood"},
        Optional{&CallRecord::userEmotion, "userEmotion"},
        Optional{&CallRecord::otherEmotion, "otherEmotion"}}) {
    out.*field = json.stringAt(key);
  }
  out.duration = json.intAt("duration");
  return out;
}

std::string shortId(const std::string& id, size_t least) {
  if (text::characterCount(id) < least) return id;
  return text::prefix(id, shortHead) + "…" + text::suffix(id, shortTail);
}

std::string CallRecord::displayName() const {
  if (direction != "outgoing") return callerName;
  return shortId(recipientId, recipientId.starts_with("device_") ? 0 : longestCallId + 1);
}

std::string CallRecord::formattedDate() const {
  const auto at = dates::parseIso8601(createdAt);
  return at ? dates::format(*at, "M/d/yy, h:mm a") : createdAt;
}

std::string CallRecord::formattedDuration() const {
  const int64_t seconds = duration.value_or(0);
  if (seconds < 1) return "";
  if (seconds >= 3600)
    return std::to_string(seconds / 3600) + "h " + std::to_string(seconds % 3600 / 60) + "m";
  if (seconds >= 60)
    return std::to_string(seconds / 60) + "m " + std::to_string(seconds % 60) + "s";
  return std::to_string(seconds) + "s";
}

std::string CallRecord::callStatusBadge() const {
  constexpr std::array<std::pair<const char*, const char*>, 5> known{{{"answered", "✅ Answered"},
                                                                      {"ended", "✅ Ended"},
                                                                      {"declined", "❌ Declined"},
                                                                      {"ringing", "🔔 Ringing"},
                                                                      {"timeout", "📵 No answer"}}};
  for (const auto& [name, badge] : known) {
    if (status == name) return badge;
  }
  return status;
}

std::vector<CallGroup> groupCallsByDate(const std::vector<CallRecord>& calls, Date now) {
  std::vector<CallGroup> groups{
      {"TODAY", {}}, {"YESTERDAY", {}}, {"THIS WEEK", {}}, {"EARLIER", {}}};
  for (const CallRecord& call : calls) groups[groupOf(call, now)].calls.push_back(call);
  std::erase_if(groups, [](const CallGroup& group) { return group.calls.empty(); });
  return groups;
}

std::string emojiForEmotion(const std::string& emotion) {
  constexpr std::array<std::pair<const char*, const char*>, 6> known{{{"HAPPY", "😊"},
                                                                      {"ANGRY", "😠"},
                                                                      {"FEAR", "😨"},
                                                                      {"SURPRISE", "😲"},
                                                                      {"DISGUST", "🤢"},
                                                                      {"NEUTRAL", "😐"}}};
  for (const auto& [name, sign] : known) {
    if (emotion == name) return sign;
  }
  return "";
}

std::string formatDuration(int64_t seconds) {
  const std::string rest = padded(seconds % 3600 / 60) + ":" + padded(seconds % 60);
  return seconds < 3600 ? rest : std::to_string(seconds / 3600) + ":" + rest;
}

}  // namespace kestrin
