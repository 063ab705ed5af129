#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dates/dates.h"
#include "platform/json/json.h"

namespace kestrin {

/// What a conversation is about: it chooses the prompt and the kind of feedback.
enum class LALiveAssistUseCase { salesCall, meeting };

/// "sales_call", "meeting".
std::string rawValue(LALiveAssistUseCase useCase);
/// "Sales Call", "Meeting".
std::string displayName(LALiveAssistUseCase useCase);
std::optional<LALiveAssistUseCase> liveAssistUseCaseFrom(std::string_view rawValue);

enum class LAAttachedFileSource { local, drive };

/// "local", "drive".
std::string rawValue(LAAttachedFileSource source);

/// A file that goes with a session: one of this machine, which stays where it is, or one of the
/// user's Drive.
struct LAAttachedFile {
  std::string id;  ///< the path, or the Drive file's id
  std::string name;
  std::string url;   ///< "file:///home/...", or "drive://<id>/<name>"
  int64_t size = 0;  ///< bytes; 0: unknown
  LAAttachedFileSource source = LAAttachedFileSource::local;
  bool useForContext = true;
  std::optional<std::string> driveFileId;

  static LAAttachedFile local(const std::string& path, int64_t size);
  static LAAttachedFile drive(const std::string& fileId, const std::string& name, int64_t size);

  /// As the session store takes it: where a file of this machine lies stays here.
  Json toJson() const;
  /// As the store hands it back, with an `id` where it has one. Nothing for a source that is not
  /// known and for a file without a name (local) or an id (Drive).
  static std::optional<LAAttachedFile> fromJson(const Json& json);
  bool operator==(const LAAttachedFile&) const = default;
};

/// One line in the chat view's lists, by channel.
struct LATranscriptEntry {
  Date timestamp;
  std::string text;
  bool isFinal = true;
  std::string emotion;
};

/// The feedback that a session's record keeps: the last that was shown.
struct LAFeedbackSnapshot {
  std::string feedbackSummary;
  std::vector<std::string> suggestions;
  std::vector<std::string> keywords;
  /// A stored one may hold these; they are handed on as they are and never sent.
  std::vector<Json> memoryItems;
  std::vector<Json> docItems;

  Json toJson() const;
  static LAFeedbackSnapshot fromJson(const Json& json);
  bool operator==(const LAFeedbackSnapshot&) const = default;
};

/// A past session as the store tells it; what is missing is empty or zero.
struct LASessionRecord {
  std::string id;
  std::optional<Date> startTime;  ///< sent as ISO 8601, or as an epoch in seconds or milliseconds
  int64_t transcriptCount = 0;
  int64_t microphoneCount = 0;
  int64_t systemAudioCount = 0;
  int64_t totalDurationMs = 0;
  std::string title;
  std::string summary;
  std::string contactName;
  std::string contactEmail;
  std::optional<LALiveAssistUseCase> useCase;
  std::vector<LAAttachedFile> attachedFiles;
  std::optional<LAFeedbackSnapshot> feedbackSnapshot;

  /// Nothing without an id.
  static std::optional<LASessionRecord> fromJson(const Json& json);
};

}  // namespace kestrin
