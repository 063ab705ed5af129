#include "companion/http/multipart.h"

#include <algorithm>
#include <optional>

#include "platform/text/text.h"

namespace kestrin::server {

namespace {

constexpr size_t mostParts = 64;
constexpr size_t longestHead = 8192;
constexpr size_t longestBoundary = 70;  // RFC 2046

tl::unexpected<Error> malformed(std::string what) {
  return fail("Multipart", 2, "The form is malformed: " + std::move(what));
}

/// The value of `name` among the `;`-separated parameters of a header value, quoted or not.
std::optional<std::string> parameter(std::string_view value, std::string_view name) {
  size_t at = value.find(';');
  while (at != std::string_view::npos && at < value.size()) {
    ++at;
    while (at < value.size() && (value[at] == ' ' || value[at] == '\t')) ++at;
    const size_t equals = value.find('=', at);
    if (equals == std::string_view::npos) return std::nullopt;
    const std::string key = text::lower(text::trim(value.substr(at, equals - at)));
    std::string found;
    at = equals + 1;
    if (at < value.size() && value[at] == '"') {
      for (++at; at < value.size() && value[at] != '"'; ++at) {
        if (value[at] == '\\' && at + 1 < value.size()) ++at;
        found += value[at];
      }
      at = value.find(';', at);
    } else {
      const size_t end = std::min(value.find(';', at), value.size());
      found = text::trim(value.substr(at, end - at));
      at = end;
    }
    if (key == name) return found;
  }
  return std::nullopt;
}

/// Reads the head lines of a part; nothing when it has no name.
std::optional<FormPart> readHead(std::string_view head) {
  FormPart part;
  bool named = false;
  for (const std::string& line : text::split(head, "\r\n")) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    if (text::lower(text::trim(line.substr(0, colon))) != "content-disposition") continue;
    const std::string value = text::trim(line.substr(colon + 1));
    if (!text::lower(value).starts_with("form-data")) return std::nullopt;
    const auto name = parameter(value, "name");
    named = name.has_value();
    part.name = name.value_or("");
    part.fileName = parameter(value, "filename").value_or("");
  }
  return named ? std::optional(std::move(part)) : std::nullopt;
}

}  // namespace

Result<std::vector<FormPart>> parseMultipart(std::string_view contentType, std::string_view body) {
  const std::string type = text::lower(text::trim(contentType.substr(0, contentType.find(';'))));
  const std::string boundary = parameter(contentType, "boundary").value_or("");
  if (type != "multipart/form-data" || boundary.empty() || boundary.size() > longestBoundary) {
    return fail("Multipart", 1, "The body must be multipart/form-data with a boundary");
  }
  const std::string delimiter = "\r\n--" + boundary;
  std::string_view rest = body;
  if (!rest.starts_with(std::string_view(delimiter).substr(2)))
    return malformed("it does not begin");
  rest.remove_prefix(delimiter.size() - 2);

  std::vector<FormPart> parts;
  while (!rest.starts_with("--")) {
    if (!rest.starts_with("\r\n")) return malformed("a boundary is not followed by a line end");
    if (parts.size() == mostParts) return malformed("it has too many parts");
    // The line end of the boundary stays, so that a part without head lines is found too.
    const size_t headEnd = rest.substr(0, longestHead).find("\r\n\r\n");
    if (headEnd == std::string_view::npos) return malformed("a part's head does not end");
    auto part = readHead(rest.substr(2, std::max<size_t>(headEnd, 2) - 2));
    if (!part) return malformed("a part has no name");
    rest.remove_prefix(headEnd + 4);
    const size_t end = rest.find(delimiter);
    if (end == std::string_view::npos) return malformed("a part does not end");
    part->content = rest.substr(0, end);
    rest.remove_prefix(end + delimiter.size());
    parts.push_back(std::move(*part));
  }
  return parts;
}

const FormPart* partNamed(const std::vector<FormPart>& parts, std::string_view name) {
  const auto found = std::find_if(parts.begin(), parts.end(),
                                  [&](const FormPart& part) { return part.name == name; });
  return found == parts.end() ? nullptr : &*found;
}

}  // namespace kestrin::server
