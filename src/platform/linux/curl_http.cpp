#include "platform/linux/curl_http.h"

#include <optional>

#include "platform/linux/atomic_file.h"
#include "platform/linux/curl_network.h"

namespace kestrin {
namespace {

/// "host:port" of an address that libcurl accepts, nothing otherwise.
std::optional<std::string> peerOf(const std::string& url) {
  if (!isHttpUrl(url)) return {};
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return {};
  const auto part = [&parsed](CURLUPart which) {
    char* text = nullptr;
    const CURLUcode code = curl_url_get(parsed.get(), which, &text, CURLU_DEFAULT_PORT);
    std::string out = code == CURLUE_OK && text ? text : "";
    curl_free(text);
    return out;
  };
  return part(CURLUPART_HOST) + ":" + part(CURLUPART_PORT);
}

class DownloadedFile final : public HttpFile {
 public:
  explicit DownloadedFile(AtomicFile file) : file_(std::move(file)) {}
  Status write(std::string_view bytes) override { return file_.write(bytes); }
  Status commit() override { return file_.commit(); }

 private:
  AtomicFile file_;
};

Result<std::unique_ptr<HttpFile>> createFile(const std::string& path) {
  auto file = AtomicFile::create(path);
  if (!file) return fail(file.error());
  return std::make_unique<DownloadedFile>(std::move(*file));
}

class CurlHttpSession final : public HttpSession {
 public:
  CurlHttpSession(std::shared_ptr<CurlNetwork> network, QueueRef queue,
                  const HttpSessionConfiguration& configuration)
      : network_(std::move(network)), state_(std::make_shared<CurlSession>()) {
    state_->configuration = configuration;
    state_->queue = std::move(queue);
  }
  ~CurlHttpSession() override {
    *state_->closed = true;
    network_->close(state_);
  }

  QueueRef queue() const override { return state_->queue; }

  HttpTaskRef data(HttpRequest request,
                   std::function<void(Result<HttpResponse>)> completion) override {
    return start(std::move(request),
                 makeBodySink(state_->configuration.maximumBodyBytes, std::move(completion)));
  }
  HttpTaskRef stream(HttpRequest request, HttpStreamHandlers handlers) override {
    return start(std::move(request), makeStreamSink(std::move(handlers)));
  }
  HttpTaskRef download(HttpRequest request, std::string path,
                       std::function<void(int64_t, int64_t)> onProgress,
                       std::function<void(Result<HttpResponse>)> completion) override {
    return start(std::move(request), makeFileSink(
                                         state_->configuration.maximumBodyBytes,
                                         [path = std::move(path)] { return createFile(path); },
                                         std::move(onProgress), std::move(completion)));
  }

 private:
  HttpTaskRef start(HttpRequest request, std::unique_ptr<HttpSink> sink) {
    auto delivery = std::make_shared<HttpDelivery>(state_->queue, state_->closed, std::move(sink));
    auto peer = peerOf(request.url);
    if (!peer) {
      HttpArrival arrival;
      arrival.ended = true;
      arrival.error = httpError(httpBadUrl);
      delivery->arrive(std::move(arrival));
      return delivery;
    }
    const uint64_t id = network_->newId();
    auto transfer =
        std::make_unique<CurlTransfer>(id, state_, delivery, std::move(request), std::move(*peer));
    // A task's handle may outlive everything else.
    const std::weak_ptr<CurlNetwork> network = network_;
    delivery->setHooks({.abandon =
                            [network, id] {
                              if (const auto alive = network.lock()) alive->abandon(id);
                            },
                        .consumed =
                            [network, id, unread = transfer->unread()](size_t bytes) {
                              const size_t before = unread->fetch_sub(bytes);
                              const bool crossed = before >= CurlTransfer::resumeBelow &&
                                                   before - bytes < CurlTransfer::resumeBelow;
                              if (!crossed) return;
                              if (const auto alive = network.lock()) alive->resume(id);
                            }});
    network_->start(std::move(transfer));
    return delivery;
  }

  const std::shared_ptr<CurlNetwork> network_;
  const std::shared_ptr<CurlSession> state_;
};

class CurlHttp final : public Http {
 public:
  explicit CurlHttp(Dispatch& dispatch) : dispatch_(dispatch) {}
  ~CurlHttp() override { network_->stop(); }

  std::shared_ptr<HttpSession> makeSession(const HttpSessionConfiguration& configuration) override {
    return std::make_shared<CurlHttpSession>(network_, dispatch_.makeQueue("http.session"),
                                             configuration);
  }

 private:
  Dispatch& dispatch_;
  const std::shared_ptr<CurlNetwork> network_ = std::make_shared<CurlNetwork>();
};

}  // namespace

std::unique_ptr<Http> makeCurlHttp(Dispatch& dispatch) {
  return std::make_unique<CurlHttp>(dispatch);
}

}  // namespace kestrin
