#include "notes/voice_note.h"

#include <algorithm>
#include <vector>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t titleWords = 8;
constexpr const char* untitled = "Untitled Note";
constexpr size_t leastTitle = 3;
constexpr size_t cutFrom = 56, cutTo = 55;
/// A heading further down is no title.
constexpr size_t titleLines = 5;

/// Trimmed, without the empty ones.
std::vector<std::string> pieces(std::string_view text, std::string_view separators) {
  std::vector<std::string> found;
  for (size_t begin = 0; begin <= text.size();) {
    const size_t end = std::min(text.find_first_of(separators, begin), text.size());
    if (auto piece = text::trim(text.substr(begin, end - begin)); !piece.empty()) {
      found.push_back(std::move(piece));
    }
    begin = end + 1;
  }
  return found;
}

std::string without(std::string_view text, std::string_view marks) {
  std::string out;
  for (const char c : text) {
    if (marks.find(c) == marks.npos) out += c;
  }
  return text::trim(out);
}

std::string headingIn(const std::string& line) {
  if (!line.starts_with("#")) return {};
  return text::trim(line.substr(std::min(line.find_first_not_of("# \t"), line.size())));
}

std::string boldIn(const std::string& line) {
  if (!line.starts_with("**") || line.find("**", 2) == line.npos) return {};
  return text::trim(text::replaceAll(line, "**", ""));
}

/// The title before it is cut; empty when the lines hold nothing to name it by.
std::string chosenTitle(const std::vector<std::string>& lines) {
  for (const auto find : {headingIn, boldIn}) {
    for (size_t i = 0; i < std::min(lines.size(), titleLines); ++i) {
      auto title = find(lines[i]);
      if (text::characterCount(title) >= leastTitle) return title;
    }
  }
  return without(lines.front(), "#*-");
}

}  // namespace

std::optional<VoiceNote> VoiceNote::fromJson(const Json& record) {
  const auto id = record.stringAt("id"), content = record.stringAt("content"),
             createdAt = record.stringAt("createdAt");
  if (!id || !content || !createdAt) return std::nullopt;
  return VoiceNote{*id, *content, record.stringAt("transcript"), *createdAt,
                   record.stringAt("updatedAt")};
}

Json VoiceNote::toJson() const {
  Json out = Json::object({{"id", id}, {"content", content}, {"createdAt", createdAt}});
  if (transcript) out.set("transcript", *transcript);
  if (updatedAt) out.set("updatedAt", *updatedAt);
  return out;
}

std::string VoiceNote::relativeTimeString(Date now) const {
  const auto changed = updatedAt ? dates::parseIso8601(*updatedAt) : std::nullopt;
  return dates::relative(changed ? *changed : dates::parseIso8601(createdAt).value_or(now), now);
}

std::string structureRawTranscript(std::string_view text) {
  const auto words = pieces(text, " \t\r\n\v\f");
  if (words.empty()) return "# Quick Note\n\n- (empty)";
  std::string title = text::join(
      {words.begin(), words.begin() + ptrdiff_t(std::min(words.size(), titleWords))}, " ");
  if (words.size() > titleWords) title += "…";
  std::vector<std::string> lines;
  for (const auto& sentence : pieces(text, ".!?")) {
    lines.push_back("- " + text::capitalizeFirst(sentence));
  }
  return "# " + text::capitalizeFirst(title) + "\n\n" + text::join(lines, "\n");
}

std::string extractMeaningfulTitle(std::string_view content) {
  const auto lines = pieces(content, "\r\n");
  if (lines.empty()) return untitled;
  const std::string title = chosenTitle(lines);
  if (title.empty()) return untitled;
  return text::characterCount(title) < cutFrom ? title : text::prefix(title, cutTo) + "...";
}

}  // namespace kestrin
