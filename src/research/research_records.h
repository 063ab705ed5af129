#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dates/dates.h"
#include "platform/json/json.h"
#include "platform/result.h"

namespace kestrin {

/// A page that an answer rests on.
struct ResearchSource {
  std::string title;
  std::string url;
  std::string snippet;

  Json toJson() const;
  /// All three must be there as texts.
  static std::optional<ResearchSource> fromJson(const Json& json);
  bool operator==(const ResearchSource&) const = default;
};

/// A conversation as the backend keeps it.
struct ResearchSession {
  std::string id;
  std::string query;  ///< all questions, joined by `questionSeparator`
  std::string summary;
  std::vector<ResearchSource> sources;
  std::string createdAt;  ///< ISO 8601
  std::string userId;

  static constexpr std::string_view questionSeparator = " → ";

  Json toJson() const;
  /// Every field must be there with its type. Errors: domain "ResearchSession", code 1, with the
  /// name of the field.
  static Result<ResearchSession> fromJson(const Json& json);
  bool operator==(const ResearchSession&) const = default;
};

/// One step of the question in work, as the stream names it.
struct ProgressStep {
  enum class Type { starting, thinking, searching, reading, analyzing, summarizing };

  std::string id;
  Type type = Type::starting;
  std::string title;
  std::optional<std::string> detail;
  std::optional<std::string> url;
  bool isComplete = false;

  /// A step without an id; nothing for an event that is no step.
  static std::optional<ProgressStep> fromEvent(const Json& event);
  bool operator==(const ProgressStep&) const = default;
};
/// "starting", ...
std::string_view rawValue(ProgressStep::Type type);

/// One step in the floating panel.
struct ResearchStep {
  enum class StepType { thinking, searching, reading, analyzing, summarizing, complete };
  enum class StepStatus { inProgress, completed, failed };

  std::string id;
  StepType type = StepType::thinking;
  std::string title;
  std::optional<std::string> detail;
  std::optional<std::string> url;
  Date timestamp;
  StepStatus status = StepStatus::inProgress;
};

/// One item of a conversation.
struct ConversationMessage {
  enum class MessageType { user, progress, result, error };

  std::string id;
  MessageType type = MessageType::user;
  std::string content;  ///< the question, answer (Markdown) or error text; empty for progress
  std::optional<std::vector<ResearchSource>> sources;      ///< of a result
  std::optional<std::vector<ProgressStep>> progressSteps;  ///< of a progress message
};

}  // namespace kestrin
