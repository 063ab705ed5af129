#include "companion/agent/model_call.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "platform/dates/dates.h"
#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

using Milliseconds = std::chrono::milliseconds;

constexpr size_t mostRefusal = 64u << 10;  ///< of an error status's body, bytes
constexpr size_t mostLine = 4u << 20;      ///< a stream without line ends would fill the memory
constexpr size_t shownMessage = 200;       ///< characters
constexpr int64_t longestSeconds = 86'400;
constexpr const char* httpDate = "EEE, dd MMM yyyy HH:mm:ss 'GMT'";

bool mayPassWith(int64_t status) { return status == 429 || (status >= 500 && status < 600); }

std::optional<Milliseconds> seconds(std::string_view text) {
  int64_t value = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || text.front() == '-' || read.ptr != text.data() + text.size()) return {};
  if (read.ec == std::errc::result_out_of_range) value = longestSeconds;
  return std::chrono::seconds(std::min(value, longestSeconds));
}

/// The hosted model says it in the body: details of {"retryDelay": "17s"}, fractions allowed.
std::optional<Milliseconds> retryDelayIn(const Json& problem) {
  for (const Json* detail : problem.objectsAt("details")) {
    const std::string delay = detail->stringAt("retryDelay", "");
    if (!delay.ends_with('s')) continue;
    const auto whole = seconds(std::string_view(delay).substr(0, delay.find_first_of(".s")));
    if (whole)
      return *whole + (delay.find('.') != std::string::npos ? Milliseconds(1000) : Milliseconds(0));
  }
  return {};
}

std::string messageOf(const Json& body) {
  const Json* problem = body.objectAt("error");
  return text::prefix(problem ? problem->stringAt("message", "") : body.stringAt("error", ""),
                      shownMessage);
}

Error cancelledError() { return {"HTTP", httpCancelled, "cancelled"}; }

}  // namespace

std::optional<Milliseconds> retryAfter(const HttpHeaders& headers) {
  const HttpResponse head{.headers = headers};
  const std::string asked = text::trim(head.header("Retry-After"));
  if (const auto given = seconds(asked)) return given;
  const auto until = dates::parse(asked, httpDate, "UTC");
  const auto now = dates::parse(text::trim(head.header("Date")), httpDate, "UTC");
  if (!until || !now) return {};
  return std::max(std::chrono::duration_cast<Milliseconds>(*until - *now), Milliseconds(0));
}

void ModelCall::begin(const std::shared_ptr<HttpSession>& session, ModelEndpoint::Kind kind,
                      HttpRequest request, std::shared_ptr<LanguageModel::Cancel> cancel,
                      LanguageModel::Handlers handlers) {
  const std::shared_ptr<ModelCall> call(new ModelCall);
  call->queue_ = session->queue();
  call->session_ = session;
  call->kind_ = kind;
  call->request_ = std::move(request);
  call->cancel_ = std::move(cancel);
  call->handlers_ = std::move(handlers);
  const std::weak_ptr<ModelCall> weak = call;
  call->queue_->postAfter(firstWordPatience, [weak] {
    const auto self = weak.lock();
    if (self && !self->anyText_)
      self->giveUp(modelTooSlow, "The language model said no word in " +
                                     std::to_string(firstWordPatience.count()) + " seconds");
  });
  call->queue_->postAfter(wholePatience, [weak] {
    if (const auto self = weak.lock())
      self->giveUp(modelTooSlow, "The language model came to no end in " +
                                     std::to_string(wholePatience.count()) + " seconds");
  });
  call->queue_->post([call] {
    if (const auto alive = call->session_.lock()) call->attempt(*alive);
  });
}

void ModelCall::attempt(HttpSession& session) {
  ++attempt_;
  status_ = 0;
  headers_.clear();
  buffer_.clear();
  reported_.reset();
  asked_.reset();
  const auto self = shared_from_this();
  bool cancelled = false;
  {
    std::lock_guard lock(cancel_->mutex);
    cancelled = cancel_->cancelled;
    if (!cancelled) {
      cancel_->task = session.stream(
          request_, {[self](int status, const HttpHeaders& headers) {
                       self->status_ = status;
                       self->headers_ = headers;
                     },
                     [self](std::string_view bytes) { self->data(bytes); },
                     [self](std::optional<Error> error) { self->attemptEnded(std::move(error)); }});
    }
  }
  if (cancelled) end(cancelledError());
}

void ModelCall::data(std::string_view bytes) {
  if (verdict_) return;
  if (status_ >= 400) {
    if (buffer_.size() < mostRefusal) buffer_ += bytes;
    return;
  }
  buffer_ += bytes;
  size_t begin = 0;
  for (size_t end = buffer_.find('\n'); end != std::string::npos; end = buffer_.find('\n', begin)) {
    line(std::string_view(buffer_).substr(begin, end - begin));
    begin = end + 1;
  }
  buffer_.erase(0, begin);
  if (buffer_.size() > mostLine) giveUp(modelFailed, "The language model sends no text stream");
}

void ModelCall::line(std::string_view line) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  if (!line.starts_with("data:")) return;
  line.remove_prefix(5);
  if (!line.empty() && line.front() == ' ') line.remove_prefix(1);
  if (line == "[DONE]") return;
  const auto event = Json::parse(line);
  if (!event) return;
  const Json* problem = event->objectAt("error");
  if (problem || event->stringAt("error")) {
    const std::string message = messageOf(*event);
    reported_ = Outcome{{"LanguageModel", modelFailed,
                         message.empty() ? "The language model reported an error" : message},
                        problem && mayPassWith(problem->intAt("code").value_or(0))};
    if (problem) asked_ = retryDelayIn(*problem);
    return;
  }
  std::string piece = textOfEvent(kind_, *event);
  if (piece.empty()) return;
  anyText_ = true;
  handlers_.onText(std::move(piece));
}

ModelCall::Outcome ModelCall::refusal() {
  std::string message;
  asked_ = retryAfter(headers_);
  if (const auto body = Json::parse(buffer_)) {
    message = messageOf(*body);
    const Json* problem = body->objectAt("error");
    if (problem && !asked_) asked_ = retryDelayIn(*problem);
  }
  return {{"LanguageModel", modelRefused,
           "The language model answered with status " + std::to_string(status_) +
               (message.empty() ? "" : ": " + message)},
          mayPassWith(status_)};
}

std::optional<ModelCall::Outcome> ModelCall::outcome(const std::optional<Error>& transport) {
  if (verdict_) return Outcome{*verdict_};
  if (transport) {
    // After a time-out the speaker has waited long enough.
    const bool mayPass = transport->domain == "HTTP" && (transport->code == httpCannotConnect ||
                                                         transport->code == httpConnectionLost ||
                                                         transport->code == httpBadResponse);
    return Outcome{*transport, mayPass};
  }
  if (status_ >= 400) return refusal();
  if (!buffer_.empty()) line(std::exchange(buffer_, {}));
  if (reported_) return reported_;
  if (anyText_) return {};
  return Outcome{{"LanguageModel", modelSilent, "The language model gave no answer"}};
}

void ModelCall::attemptEnded(std::optional<Error> transport) {
  const auto failure = outcome(transport);
  if (!failure) return end({});
  if (failure->mayPass && !anyText_ && attempt_ < attempts) {
    if (const auto length = pauseBeforeNext()) return pause(*length);
  }
  end(failure->error);
}

std::optional<Milliseconds> ModelCall::pauseBeforeNext() const {
  const Milliseconds own = firstPause * (1 << (attempt_ - 1));
  if (!asked_) return own;
  if (*asked_ > longestPause) return {};
  return std::max(own, *asked_);
}

void ModelCall::pause(Milliseconds length) {
  paused_ = true;
  const auto over = [self = shared_from_this(), number = attempt_] { self->pauseOver(number); };
  bool cancelled = false;
  {
    std::lock_guard lock(cancel_->mutex);
    cancelled = cancel_->cancelled;
    cancel_->task = nullptr;
    // The queue alone: whoever holds the token must not hold the call.
    cancel_->wake = [queue = queue_, weak = weak_from_this(), number = attempt_] {
      queue->post([weak, number] {
        if (const auto self = weak.lock()) self->pauseOver(number);
      });
    };
  }
  if (cancelled) return over();
  queue_->postAfter(length, over);
}

void ModelCall::pauseOver(int attempt) {
  if (!paused_ || attempt_ != attempt) return;
  paused_ = false;
  {
    std::lock_guard lock(cancel_->mutex);
    cancel_->wake = nullptr;
  }
  if (verdict_) return end(verdict_);
  if (const auto session = session_.lock()) this->attempt(*session);
}

void ModelCall::giveUp(LanguageModelError code, std::string why) {
  if (ended_ || verdict_) return;
  verdict_ = Error{"LanguageModel", code, std::move(why)};
  HttpTaskRef running;
  {
    std::lock_guard lock(cancel_->mutex);
    running = cancel_->task;
  }
  if (paused_) return pauseOver(attempt_);
  if (running) running->cancel();
}

void ModelCall::end(std::optional<Error> error) {
  if (std::exchange(ended_, true)) return;
  handlers_.onEnd(std::move(error));
  // What they hold may hold the token, and that the running request's handlers.
  handlers_ = {};
}

}  // namespace kestrin::agent
