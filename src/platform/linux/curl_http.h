#pragma once

#include <memory>

#include "platform/http.h"

namespace kestrin {

/// HTTP over libcurl. One network thread serves all sessions; they share its pool of connections,
/// so that warming one up helps all. `dispatch` must outlive the sessions; the sessions may outlive
/// this, their requests then end with `httpCancelled`.
std::unique_ptr<Http> makeCurlHttp(Dispatch& dispatch);

}  // namespace kestrin
