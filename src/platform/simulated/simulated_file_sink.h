#pragma once

#include <cstdlib>

#include "platform/files.h"
#include "platform/http_delivery.h"

namespace kestrin {

/// Collects a body and writes it where a real backend would.
class SimulatedFileSink final : public HttpSink {
 public:
  SimulatedFileSink(Files* files, std::string path, std::function<void(int64_t, int64_t)> progress,
                    std::function<void(Result<HttpResponse>)> completion)
      : files_(files),
        path_(std::move(path)),
        progress_(std::move(progress)),
        completion_(std::move(completion)) {}

  std::optional<Error> head(int status, const HttpHeaders& headers) override {
    response_.status = status;
    response_.headers = headers;
    total_ = std::atoll(response_.header("Content-Length").c_str());
    return {};
  }
  std::optional<Error> data(std::string_view bytes) override {
    response_.body += bytes;
    if (progress_ && wanted()) progress_(static_cast<int64_t>(response_.body.size()), total_);
    return {};
  }
  void end(std::optional<Error> error) override {
    if (!error && wanted()) {
      if (const auto written = files_ ? files_->writeAtomic(path_, response_.body) : Status();
          !written) {
        error = httpError(httpFile);
        error->description += ": " + written.error().description;
      }
      response_.body.clear();
    }
    if (!completion_) return;
    if (error) {
      completion_(fail(std::move(*error)));
    } else {
      completion_(std::move(response_));
    }
  }

 private:
  bool wanted() const { return response_.status / 100 == 2; }

  Files* const files_;
  const std::string path_;
  const std::function<void(int64_t, int64_t)> progress_;
  const std::function<void(Result<HttpResponse>)> completion_;
  HttpResponse response_;
  int64_t total_ = 0;
};

}  // namespace kestrin
