#include "liveassist/file_content_cache.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/dispatch/background.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "Files";
constexpr std::array<std::pair<std::string_view, const char*>, 2> binaryTypes{{
    {"pdf", "application/pdf"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
}};
constexpr std::array<std::string_view, 17> textExtensions{
    "txt", "md",   "json", "csv", "log",  "swift", "ts",   "tsx", "js",
    "py",  "java", "go",   "rs",  "yaml", "yml",   "html", "css"};

std::string extensionOf(const std::string& name) {
  const size_t dot = name.rfind('.');
  return dot == std::string::npos ? "" : text::lower(name.substr(dot + 1));
}

const char* binaryTypeOf(const std::string& extension) {
  for (const auto& [known, type] : binaryTypes) {
    if (extension == known) return type;
  }
  return "";
}

bool isText(const std::string& extension) {
  return std::find(textExtensions.begin(), textExtensions.end(), extension) != textExtensions.end();
}

}  // namespace

FileContentCache::FileContentCache(Dispatch& dispatch, Files& files, Logger& logger,
                                   DriveClient& drive)
    : dispatch_(dispatch), files_(files), logger_(logger), drive_(drive) {}

void FileContentCache::ensureFileContentCached(const std::vector<LAAttachedFile>& files,
                                               const std::map<std::string, std::string>& mimeTypes,
                                               std::function<void()> ready) {
  std::vector<Local> wanted;
  for (const LAAttachedFile& file : files) {
    if (fileContentCache_.contains(file.id) || reading_.contains(file.id)) continue;
    if (file.source == LAAttachedFileSource::drive) {
      const auto type = mimeTypes.find(file.id);
      fetchDrive(file, type == mimeTypes.end() ? "" : type->second);
      continue;
    }
    const std::string extension = extensionOf(file.name);
    const std::string binaryType = binaryTypeOf(extension);
    if (binaryType.empty() && !isText(extension)) {
      fileContentCache_[file.id] = "";
      continue;
    }
    reading_.insert(file.id);
    wanted.push_back({file.id, file.name, file.id, binaryType, Bytes()});
  }
  if (wanted.empty()) return ready();
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_,
      [&files = files_, wanted = std::move(wanted)] {
        std::vector<Local> read = wanted;
        for (Local& each : read) each.content = files.read(each.path);
        return read;
      },
      [this, session = session_, ready = std::move(ready)](const std::vector<Local>& read) {
        if (session != session_) return;
        for (const Local& each : read) keep(each);
        ready();
      });
}

void FileContentCache::keep(const Local& read) {
  reading_.erase(read.id);
  std::string& words = fileContentCache_[read.id];
  if (!read.binaryType.empty()) {
    const bool pdf = read.binaryType == binaryTypes[0].second;
    if (!read.content) {
      return logger_.log(source, LogLevel::error,
                         std::string("Failed to read ") + (pdf ? "PDF: " : "PPTX: ") + read.name);
    }
    fileBinaryCache_[read.id] = {*read.content, read.binaryType};
    return logger_.log(source, LogLevel::info,
                       std::string("Cached ") + (pdf ? "PDF: " : "PPTX: ") + read.name);
  }
  if (!read.content || !text::isValidUtf8(*read.content)) {
    return logger_.log(source, LogLevel::error, "Failed to read text file: " + read.name);
  }
  words = *read.content;
  logger_.log(source, LogLevel::info,
              "Cached text file: " + read.name + " (" +
                  std::to_string(text::characterCount(words)) + " chars)");
}

void FileContentCache::fetchDrive(const LAAttachedFile& file, const std::string& mimeType) {
  const std::string fileId = file.driveFileId.value_or("");
  if (fileId.empty()) return;
  logger_.log(source, LogLevel::info,
              "Fetching Drive file: " + file.name + " (ID: " + fileId + ")");
  reading_.insert(file.id);
  drive_.file(
      fileId, mimeType,
      lifetime_.guard([this, session = session_, id = file.id,
                       name = file.name](const Result<DriveContent>& content) {
        if (session != session_) return;
        reading_.erase(id);
        if (!content) {
          // A refusal stays one; a lost connection may be back at the next refresh.
          const bool answered = content.error().domain == DriveClient::domain;
          if (answered) fileContentCache_[id] = "";
          return logger_.log(
              source, LogLevel::error,
              (answered ? "Invalid Drive file response for " : "Failed to fetch Drive file ") +
                  name);
        }
        fileContentCache_[id] = content->bytes.empty() ? content->text : "";
        if (content->bytes.empty()) {
          return logger_.log(source, LogLevel::info,
                             "Cached Drive text file: " + name + " (" +
                                 std::to_string(text::characterCount(content->text)) + " chars)");
        }
        fileBinaryCache_[id] = {content->bytes, content->mimeType};
        logger_.log(source, LogLevel::info,
                    "Cached Drive binary file: " + name + " (" +
                        std::to_string(content->bytes.size()) + " bytes, " + content->mimeType +
                        ")");
      }));
}

std::vector<Json> FileContentCache::documents(const std::vector<LAAttachedFile>& files) const {
  std::vector<Json> out;
  for (const LAAttachedFile& file : files) {
    Json document = Json::object({{"id", file.id}, {"name", file.name}});
    if (const auto binary = fileBinaryCache_.find(file.id); binary != fileBinaryCache_.end()) {
      document.set("content", "");
      document.set("content_bytes", text::base64Encode(binary->second.bytes));
      document.set("mime_type", binary->second.mimeType);
      out.push_back(std::move(document));
      continue;
    }
    const auto words = fileContentCache_.find(file.id);
    if (words == fileContentCache_.end() || words->second.empty()) continue;
    document.set("content", text::prefix(words->second, mostTextCharacters));
    out.push_back(std::move(document));
  }
  return out;
}

void FileContentCache::clear() {
  fileContentCache_.clear();
  fileBinaryCache_.clear();
  reading_.clear();
  ++session_;
}

}  // namespace kestrin
