#include "liveassist/session_records.h"

#include <cmath>

#include "platform/text/text.h"

namespace kestrin {
namespace {

/// What may stand in the path of an address as it is.
bool isPathByte(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         std::string_view("!$&'()*+,-./:=@_~").find(c) != std::string_view::npos;
}

std::string encodePath(std::string_view path) {
  constexpr char digits[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : path) {
    if (isPathByte(c)) {
      out += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    out += {'%', digits[byte >> 4], digits[byte & 15]};
  }
  return out;
}

std::optional<Date> startTimeOf(const Json& json) {
  if (const auto said = json.stringAt("startTime")) return dates::parseIso8601(*said);
  const auto epoch = json.numberAt("startTime");
  // Seconds of a far future are milliseconds of our time.
  constexpr double firstMilliseconds = 1e11, last = 1e14;
  if (!epoch || !(std::abs(*epoch) < last)) return std::nullopt;
  const double seconds = std::abs(*epoch) < firstMilliseconds ? *epoch : *epoch / 1000;
  return Date(std::chrono::milliseconds(std::llround(seconds * 1000)));
}

int64_t countAt(const Json& json, std::string_view key) { return json.intAt(key).value_or(0); }

std::vector<Json> copiesAt(const Json& json, std::string_view key) {
  return json.objectListAt(key).value_or(Json::Array{});
}

}  // namespace

std::string rawValue(LALiveAssistUseCase useCase) {
  return useCase == LALiveAssistUseCase::salesCall ? "sales_call" : "meeting";
}

std::string displayName(LALiveAssistUseCase useCase) {
  return useCase == LALiveAssistUseCase::salesCall ? "Sales Call" : "Meeting";
}

std::optional<LALiveAssistUseCase> liveAssistUseCaseFrom(std::string_view value) {
  for (const auto useCase : {LALiveAssistUseCase::salesCall, LALiveAssistUseCase::meeting}) {
    if (rawValue(useCase) == value) return useCase;
  }
  return std::nullopt;
}

std::string rawValue(LAAttachedFileSource source) {
  return source == LAAttachedFileSource::local ? "local" : "drive";
}

LAAttachedFile LAAttachedFile::local(const std::string& path, int64_t size) {
  LAAttachedFile file;
  file.id = path;
  file.name = path.substr(path.rfind('/') + 1);
  file.url = "file://" + encodePath(path);
  file.size = size;
  return file;
}

LAAttachedFile LAAttachedFile::drive(const std::string& fileId, const std::string& name,
                                     int64_t size) {
  LAAttachedFile file;
  file.id = fileId;
  file.name = name;
  file.url = "drive://" + fileId + "/" + encodePath(name);
  file.size = size;
  file.source = LAAttachedFileSource::drive;
  file.driveFileId = fileId;
  return file;
}

Json LAAttachedFile::toJson() const {
  Json json = Json::object({{"name", name},
                            {"size", size},
                            {"source", rawValue(source)},
                            {"useForContext", useForContext}});
  if (driveFileId) json.set("driveFileId", *driveFileId);
  return json;
}

std::optional<LAAttachedFile> LAAttachedFile::fromJson(const Json& json) {
  const std::string source = json.stringAt("source", "");
  const std::string id = json.stringAt("id", "");
  const int64_t size = countAt(json, "size");
  LAAttachedFile file;
  if (source == rawValue(LAAttachedFileSource::local)) {
    file = local(id, size);
    file.name = json.stringAt("name", file.name);
    if (file.name.empty()) return std::nullopt;
  } else if (source == rawValue(LAAttachedFileSource::drive)) {
    file = drive(json.stringAt("driveFileId", id), json.stringAt("name", "Unknown"), size);
    if (file.id.empty()) return std::nullopt;
  } else {
    return std::nullopt;
  }
  file.useForContext = json.boolAt("useForContext").value_or(true);
  return file;
}

Json LAFeedbackSnapshot::toJson() const {
  return Json::object({{"feedbackSummary", feedbackSummary},
                       {"suggestions", Json::arrayOf(suggestions)},
                       {"keywords", Json::arrayOf(keywords)}});
}

LAFeedbackSnapshot LAFeedbackSnapshot::fromJson(const Json& json) {
  return {json.stringAt("feedbackSummary", ""), json.stringsAt("suggestions"),
          json.stringsAt("keywords"), copiesAt(json, "memoryItems"), copiesAt(json, "docItems")};
}

std::optional<LASessionRecord> LASessionRecord::fromJson(const Json& json) {
  LASessionRecord record;
  record.id = json.stringAt("id", "");
  if (record.id.empty()) return std::nullopt;
  record.startTime = startTimeOf(json);
  record.transcriptCount = countAt(json, "transcriptCount");
  record.microphoneCount = countAt(json, "microphoneCount");
  record.systemAudioCount = countAt(json, "systemAudioCount");
  record.totalDurationMs = countAt(json, "totalDurationMs");
  record.title = json.stringAt("title", "");
  record.summary = json.stringAt("summary", "");
  record.contactName = json.stringAt("contactName", "");
  record.contactEmail = json.stringAt("contactEmail", "");
  record.useCase = liveAssistUseCaseFrom(json.stringAt("useCase", ""));
  for (const Json* item : json.objectsAt("attachedFiles")) {
    if (auto file = LAAttachedFile::fromJson(*item)) record.attachedFiles.push_back(*file);
  }
  if (const Json* snapshot = json.objectAt("feedbackSnapshot")) {
    record.feedbackSnapshot = LAFeedbackSnapshot::fromJson(*snapshot);
  }
  return record;
}

}  // namespace kestrin
