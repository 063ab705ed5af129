#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/dates/dates.h"
#include "platform/json/json.h"

namespace kestrin {

/// A spoken thought as a short Markdown text, as the backend keeps it.
struct VoiceNote {
  std::string id;
  std::string content;
  std::optional<std::string> transcript;
  std::string createdAt;  ///< ISO 8601
  std::optional<std::string> updatedAt;

  /// Nothing when `id`, `content` or `createdAt` is missing.
  static std::optional<VoiceNote> fromJson(const Json& record);
  Json toJson() const;
  /// Of the last change, against `now`: "5 minutes ago". A time that is none counts as now.
  std::string relativeTimeString(Date now) const;
  bool operator==(const VoiceNote&) const = default;
};

/// The note that a transcript becomes without an agent: a title of its first words and a bullet a
/// sentence.
std::string structureRawTranscript(std::string_view text);

/// The title of a note in lists; never empty, at most 58 characters.
std::string extractMeaningfulTitle(std::string_view content);

}  // namespace kestrin
