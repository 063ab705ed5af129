#include "services/local/asr_request.h"

#include <utility>
#include <vector>

namespace kestrin {
namespace {

constexpr auto requestTimeout = std::chrono::milliseconds(30'000);

struct FilePart {
  const char* disposition;
  const char* type;
  std::string_view content;
};

HttpRequest multipart(std::string url,
                      const std::vector<std::pair<std::string, std::string>>& fields,
                      const FilePart& file, const std::string& boundary) {
  HttpRequest request;
  request.method = "POST";
  request.url = std::move(url);
  request.timeout = requestTimeout;
  request.setHeader("Content-Type", "multipart/form-data; boundary=" + boundary);
  // A recording is large: one allocation, one copy.
  constexpr size_t partOverhead = 256;
  request.body.reserve(file.content.size() + partOverhead * (fields.size() + 1));
  for (const auto& [name, value] : fields) {
    request.body += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + name +
                    "\"\r\n\r\n" + value + "\r\n";
  }
  request.body += "--" + boundary + "\r\n" + file.disposition + file.type;
  request.body += file.content;
  request.body += "\r\n--" + boundary + "--\r\n";
  return request;
}

}  // namespace

HttpRequest asrFileRequest(const std::string& baseUrl, std::string_view wav,
                           const std::string& boundary) {
  return multipart(baseUrl + "/transcribe", {{"metadata_prob", "true"}, {"top_k", "5"}},
                   {"Content-Disposition: form-data; name=\"file\"; filename=\"audio.wav\"\r\n",
                    "Content-Type: audio/wav\r\n\r\n", wav},
                   boundary);
}

HttpRequest asrPcmRequest(const std::string& baseUrl, std::string_view pcm, int sampleRate,
                          int topK, const std::string& boundary) {
  return multipart(baseUrl + "/transcribe/pcm",
                   {{"sample_rate", std::to_string(sampleRate)},
                    {"channels", "1"},
                    {"bit_depth", "16"},
                    {"metadata_prob", "true"},
                    {"top_k", std::to_string(topK)}},
                   {"Content-Disposition: form-data; name=\"file\"; filename=\"audio.pcm\"\r\n",
                    "Content-Type: application/octet-stream\r\n\r\n", pcm},
                   boundary);
}

}  // namespace kestrin
