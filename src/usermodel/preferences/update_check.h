#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/http.h"
#include "services/local/endpoints.h"

namespace kestrin {

inline constexpr const char* applicationVersion = "1.0.0";

/// Compares by their texts, runs of digits by their numbers: "1.10.0" is newer than "1.9".
bool isNewerVersion(std::string_view version, std::string_view than);

/// What the backend says of versions.
struct PublishedVersion {
  std::string version;
  std::string downloadUrl;  ///< empty when the backend names none that is a web address
};

/// Asks the backend for the newest version (`GET /app/version`).
class UpdateCheck {
 public:
  UpdateCheck(Http& http, const Endpoints& endpoints);

  /// `done` on the session's queue; nothing when there was no usable reply.
  void ask(std::function<void(std::optional<PublishedVersion>)> done);
  /// Where a download is offered when the backend does not say.
  std::string downloadPage() const { return backend_ + "/download"; }

 private:
  const std::string backend_;
  const std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin
