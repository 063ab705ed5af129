#include "companion/agent/local_agent.h"

#include <map>
#include <utility>

#include "companion/agent/prompts.h"
#include "companion/agent/shapes.h"
#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

constexpr size_t pieceBytes = 160;

void emitText(const std::string& text, const Agent::Emit& emit) {
  for (const std::string& piece : pieces(text, pieceBytes)) emit(Json::object({{"chunk", piece}}));
}

Detection detectionFor(const Json& body, const AppContext& app, bool& autoDetected) {
  const std::string transcript = body.stringAt("transcript", "");
  const std::string mode = body.stringAt("mode", "auto");
  autoDetected = mode == "auto" || mode.empty();
  return autoDetected ? detectMode(transcript, app) : contentForMode(mode, transcript, app);
}

/// What is written without a model. A command that was asked for but not understood goes out as it
/// was said: the application tries it as a sentence.
std::string ownWords(const Detection& detection, const Json& body) {
  const std::string text = shape(detection, {text::trim(body.stringAt("user_name", ""))});
  if (text.empty() && detection.mode == "command") return text::trim(detection.content);
  return text;
}

/// What was said is no answer to itself: only a model can give one.
bool needsModel(const Detection& detection) { return detection.mode == answerMode; }

/// Without the server's own words, which may say anything.
std::string whyWithout(const Error& error) {
  if (error.domain != "LanguageModel") {
    return error.code == httpTimedOut ? "did not answer in time" : "could not be reached";
  }
  switch (error.code) {
    case modelRefused:
      return "refused the request";
    case modelTooSlow:
      return "did not answer in time";
    default:
      return "gave no answer";
  }
}

/// What the application shows as a notification: the text at the caret looks like any other.
Json writtenWithout(const Error& error) {
  return Json::object(
      {{"action",
        Json::object({{"type", "notification"},
                      {"title", "Written without the language model"},
                      {"body", "The language model " + whyWithout(error) +
                                   ". Your own words were put in form by rules instead."}})}});
}

}  // namespace

std::vector<std::string> pieces(const std::string& text, size_t size) {
  std::vector<std::string> out;
  size_t begin = 0;
  while (text.size() - begin > size) {
    size_t cut = text.find_first_of(" \n", begin + size);
    if (cut == std::string::npos) break;
    // A line end stays with what follows it, so that no piece ends in the middle of a paragraph
    // mark.
    if (text[cut] == ' ') ++cut;
    out.push_back(text.substr(begin, cut - begin));
    begin = cut;
  }
  if (begin < text.size()) out.push_back(text.substr(begin));
  return out;
}

/// Whom we told that which model is away. Used on the session's queue alone.
class LocalAgent::Outages {
 public:
  explicit Outages(const Clock& clock) : clock_(clock) {}

  /// Whether the user is to be told of this failure; that counts as done.
  bool tell(const std::string& key) {
    const SteadyTime now = clock_.steadyNow();
    std::erase_if(told_, [&](const auto& each) { return now - each.second >= toldAgainAfter; });
    // Who names a new model with every request must not fill the memory.
    constexpr size_t most = 1000;
    return told_.size() >= most || told_.emplace(key, now).second;
  }
  void worked(const std::string& key) { told_.erase(key); }

 private:
  const Clock& clock_;
  std::map<std::string, SteadyTime> told_;
};

LocalAgent::LocalAgent(std::shared_ptr<HttpSession> session, const Clock& clock,
                       std::string hostedBaseUrl, std::function<void(std::string)> log)
    : model_(std::move(session)),
      outages_(std::make_shared<Outages>(clock)),
      hostedBaseUrl_(std::move(hostedBaseUrl)),
      log_(std::move(log)) {}

void LocalAgent::process(const Json& body, Emit emit, std::function<void()> done,
                         CancelRef cancel) {
  const AppContext app = AppContext::fromBody(body);
  bool autoDetected = false;
  Detection detection = detectionFor(body, app, autoDetected);
  emit(Json::object({{"mode", detection.mode}, {"auto_detected", autoDetected}}));

  const auto endpoint = endpointFor(body, hostedBaseUrl_);
  if (!endpoint && needsModel(detection)) {
    emit(Json::object({{"error",
                        "A language model is needed to answer this, and none is set up. Choose one "
                        "in the settings."}}));
    done();
    return;
  }
  if (detection.mode == "command" || !endpoint || text::trim(detection.content).empty()) {
    emitText(ownWords(detection, body), emit);
    done();
    return;
  }

  auto stop = std::make_shared<LanguageModel::Cancel>();
  if (cancel) cancel->onCancel([stop] { (*stop)(); });
  auto started = std::make_shared<bool>(false);
  LanguageModel::Handlers handlers;
  handlers.onText = [emit, started](std::string piece) {
    *started = true;
    emit(Json::object({{"chunk", std::move(piece)}}));
  };
  handlers.onEnd = [emit, done = std::move(done), started, cancel, body, detection, log = log_,
                    outages = outages_,
                    key = body.stringAt("user_id", "") + "\n" +
                          endpoint->baseUrl](const std::optional<Error>& error) {
    const bool cancelled = cancel && cancel->isCancelled();
    if (error && !cancelled) {
      if (log) log("language model: " + error->description);
      if (*started) {
        emit(Json::object({{"error", error->description}}));
      } else if (needsModel(detection)) {
        emit(Json::object({{"error", "The language model " + whyWithout(*error) + "."}}));
      } else {
        // The user's words matter more than how well they are put.
        emitText(ownWords(detection, body), emit);
        if (outages->tell(key)) emit(writtenWithout(*error));
      }
    } else if (!error) {
      outages->worked(key);
    }
    done();
  };
  model_.stream(*endpoint, promptFor(body, detection, app), stop, std::move(handlers));
}

}  // namespace kestrin::agent
