#pragma once

#include <string>
#include <tl/expected.hpp>
#include <utility>

namespace kestrin {

/// A failure as a value. `domain` names the class that found it ("LocalASRService"), `code` is
/// small and stable within the domain, `description` is what the user reads.
struct Error {
  std::string domain;
  int code = 0;
  std::string description;

  bool operator==(const Error&) const = default;
};

/// Every operation that can fail returns one; nothing throws across a public function.
template <class T>
using Result = tl::expected<T, Error>;
using Status = Result<void>;

/// `return fail("LocalASRService", 1, "No audio data");`
inline tl::unexpected<Error> fail(std::string domain, int code, std::string description) {
  return tl::make_unexpected(Error{std::move(domain), code, std::move(description)});
}
inline tl::unexpected<Error> fail(Error error) { return tl::make_unexpected(std::move(error)); }

}  // namespace kestrin
