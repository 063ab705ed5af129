#pragma once

#include <string>
#include <string_view>

#include "identity/user.h"
#include "platform/http.h"
#include "platform/result.h"

namespace kestrin {

/// Codes of errors in the domain "Auth".
enum AuthErrorCode {
  authRefused = 1,     ///< the service said why
  authNoData = 2,      ///< an answer without a body
  authUnreadable = 3,  ///< an answer that is no account
  authStatus = 4,      ///< an error status without a reason
  authTransport = 5,   ///< no answer came
  authNotSetUp = 6,    ///< this build cannot ask
  authSignedOut = 7,   ///< signed out before the answer came
};

/// What the user reads for the service's error code. Words behind the code are left out; a code
/// that is not known is shown as it came.
std::string friendlyErrorMessage(std::string_view message);

/// Reads an answer to sign-in or sign-up; every failure has a text for the user, domain "Auth".
Result<User> parseAuthReply(const HttpResponse& response);

}  // namespace kestrin
