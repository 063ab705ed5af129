#include <cstdint>
#include <cstdlib>

#include "identity/auth_reply.h"

/// Whatever the sign-in service answers gives an error with words or an account that can be stored.
/// The first byte chooses the status.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace kestrin;
  if (size == 0) return 0;
  HttpResponse response;
  response.status = 200 + 100 * (data[0] % 4);
  response.body.assign(reinterpret_cast<const char*>(data + 1), size - 1);
  const auto user = parseAuthReply(response);
  if (!user) return user.error().description.empty() ? (abort(), 0) : 0;
  const auto stored = Json::parse(user->toJson().dump());
  if (!stored || User::fromJson(*stored) != *user) abort();
  return 0;
}
