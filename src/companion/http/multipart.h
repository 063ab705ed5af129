#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/result.h"

namespace kestrin::server {

/// One field of a form.
struct FormPart {
  std::string name;
  std::string fileName;
  std::string_view content;  ///< within the body that was parsed
};

/// Reads a `multipart/form-data` body; `contentType` is the request's header with the boundary.
/// Strict: a part without a name, a missing end, more than 64 parts are errors. Errors: domain
/// "Multipart" (1: not such a body, 2: malformed).
Result<std::vector<FormPart>> parseMultipart(std::string_view contentType, std::string_view body);

/// The first part of that name, or null.
const FormPart* partNamed(const std::vector<FormPart>& parts, std::string_view name);

}  // namespace kestrin::server
