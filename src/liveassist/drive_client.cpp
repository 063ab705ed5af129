#include "liveassist/drive_client.h"

#include <utility>

#include "platform/json/json.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr int listedFiles = 30;
constexpr std::chrono::milliseconds patience{60'000};

Result<Json> answerOf(const Result<HttpResponse>& response) {
  if (!response) return fail(response.error());
  if (response->body.empty()) {
    return fail(DriveClient::domain, DriveClient::noAnswer, "No response from server.");
  }
  auto json = Json::parse(response->body);
  if (!json || !json->isObject()) {
    return fail(DriveClient::domain, DriveClient::badAnswer, "Invalid response.");
  }
  if (!json->boolAt("success").value_or(false)) {
    return fail(DriveClient::domain, DriveClient::refused,
                json->stringAt("error", "Unknown error"));
  }
  return std::move(*json);
}

/// The backend hands the size on as Google writes it, which is a text.
int64_t sizeOf(const Json& file) {
  if (const auto number = file.intAt("size")) return *number;
  int64_t size = 0;
  for (const char digit : file.stringAt("size", "")) {
    if (digit < '0' || digit > '9' || size > INT64_MAX / 100) return 0;
    size = size * 10 + (digit - '0');
  }
  return size;
}

Result<std::vector<DriveFile>> filesIn(const Result<Json>& answer) {
  if (!answer) return fail(answer.error());
  std::vector<DriveFile> files;
  for (const Json* file : answer->objectsAt("files")) {
    const auto id = file->stringAt("id", "");
    if (id.empty()) continue;
    files.push_back(
        {id, file->stringAt("name", "Unknown"), file->stringAt("mimeType", ""), sizeOf(*file)});
  }
  return files;
}

Result<DriveContent> contentIn(const Result<Json>& answer) {
  if (!answer) return fail(answer.error());
  DriveContent content;
  content.mimeType = answer->stringAt("mimeType", "");
  content.text = answer->stringAt("content", "");
  const auto encoded = answer->stringAt("contentBytes", "");
  if (!encoded.empty() && !text::base64Decode(encoded, content.bytes)) {
    return fail(DriveClient::domain, DriveClient::badAnswer, "Invalid response.");
  }
  return content;
}

}  // namespace

DriveClient::DriveClient(Dispatch& dispatch, Http& http, std::string deviceId, std::string baseURL)
    : dispatch_(dispatch),
      deviceId_(std::move(deviceId)),
      baseURL_(std::move(baseURL)),
      session_(http.makeSession({.requestTimeout = patience})) {}

void DriveClient::get(const std::string& path,
                      std::function<void(const Result<Json>&)> completion) {
  HttpRequest request{.url = baseURL_ + path};
  request.setHeader("X-Device-Id", deviceId_);
  session_->data(std::move(request),
                 [main = dispatch_.mainQueue(),
                  completion = std::move(completion)](const Result<HttpResponse>& response) {
                   main->post([completion, answer = answerOf(response)] { completion(answer); });
                 });
}

void DriveClient::files(std::function<void(const Result<std::vector<DriveFile>>&)> completion) {
  get("/drive/files?device_user_id=" + urlEncode(deviceId_) +
          "&limit=" + std::to_string(listedFiles),
      [completion = std::move(completion)](const Result<Json>& answer) {
        completion(filesIn(answer));
      });
}

void DriveClient::file(const std::string& fileId, const std::string& mimeType,
                       std::function<void(const Result<DriveContent>&)> completion) {
  const std::string query = mimeType.empty() ? "" : "?mimeType=" + urlEncode(mimeType);
  get("/drive/file/" + urlEncode(deviceId_) + "/" + urlEncode(fileId) + query,
      [completion = std::move(completion)](const Result<Json>& answer) {
        completion(contentIn(answer));
      });
}

}  // namespace kestrin
