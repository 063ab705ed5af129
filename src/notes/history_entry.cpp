#include "notes/history_entry.h"

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t comparedCharacters = 80;
constexpr const char* signs[] = {"🔊 ", "✅ ", "❌ ", "📝 "};

std::string normalizedOutput(std::string_view output) {
  for (const std::string_view sign : signs) {
    if (output.starts_with(sign)) output.remove_prefix(sign.size());
  }
  return text::prefix(output, comparedCharacters);
}

}  // namespace

HistoryEntry HistoryEntry::fromServer(const Json& record, std::string id, Date now) {
  return {.id = std::move(id),
          .timestamp = dates::parseIso8601(record.stringAt("timestamp", "")).value_or(now),
          .mode = record.stringAt("mode", "plain"),
          .input = record.stringAt("transcript", ""),
          .output = record.stringAt("processedText", ""),
          .appContext = record.stringAt("appName", "")};
}

Json HistoryEntry::toJson() const {
  return Json::object({{"timestamp", dates::iso8601(timestamp, true)},
                       {"mode", mode},
                       {"input", input},
                       {"output", output},
                       {"app_context", appContext}});
}

std::string HistoryEntry::mergeKey() const {
  const auto minutes =
      std::chrono::duration_cast<std::chrono::minutes>(timestamp.time_since_epoch()).count();
  return std::to_string(minutes) + "_" + normalizedOutput(output);
}

}  // namespace kestrin
