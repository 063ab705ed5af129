#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/http.h"
#include "platform/json/json.h"

namespace kestrin {

/// A file of the user's Drive, as the picker lists it.
struct DriveFile {
  std::string id;
  std::string name;
  std::string mimeType;
  int64_t size = 0;  ///< bytes; 0: unknown
};

/// One file's content: bytes (with a type) or text.
struct DriveContent {
  Bytes bytes;
  std::string mimeType;
  std::string text;
};

/// The user's Drive, through the backend. Completions run on the main queue. Thread-safe; dropping
/// it drops what is under way.
class DriveClient {
 public:
  static constexpr const char* domain = "DriveClient";
  enum ErrorCode {
    badAnswer = 1,  ///< not an object, or a content that does not decode
    refused = 2,    ///< the answer's `error`
    noAnswer = 3,   ///< an empty body
  };

  DriveClient(Dispatch& dispatch, Http& http, std::string deviceId, std::string baseURL);

  void files(std::function<void(const Result<std::vector<DriveFile>>&)> completion);
  /// `mimeType` may be empty.
  void file(const std::string& fileId, const std::string& mimeType,
            std::function<void(const Result<DriveContent>&)> completion);

 private:
  void get(const std::string& path, std::function<void(const Result<Json>&)> completion);

  Dispatch& dispatch_;
  const std::string deviceId_;
  const std::string baseURL_;
  const std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin
