#pragma once

#include <string>
#include <system_error>

#include "platform/result.h"

namespace kestrin {

/// "/home/a/b: Permission denied" with errno's number as code.
inline Error posixError(std::string domain, const std::string& what, int number) {
  return {std::move(domain), number, what + ": " + std::generic_category().message(number)};
}

}  // namespace kestrin
