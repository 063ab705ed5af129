#include "companion/personality/routes.h"

#include "companion/backend/answers.h"
#include "companion/http/multipart.h"
#include "companion/personality/archetype.h"
#include "companion/personality/profile.h"
#include "platform/audio/wav.h"
#include "platform/text/text.h"

namespace kestrin::personality {
namespace {

using backend::answerFailed;
using server::Request;
using server::Responder;

constexpr int64_t consideredDictations = 500;
constexpr size_t mostAnswers = 10;

/// The answers that are still to be heard, and those that were. One step at a time, on the
/// transcriber's queue.
struct Hearing : std::enable_shared_from_this<Hearing> {
  std::shared_ptr<recogniser::Transcriber> transcriber;
  Responder responder;
  std::string name;
  std::vector<std::vector<float>> recordings;
  std::vector<Answer> answers;
  size_t next = 0;

  Hearing(std::shared_ptr<recogniser::Transcriber> t, Responder r)
      : transcriber(std::move(t)), responder(std::move(r)) {}

  void go() {
    if (next == recordings.size()) return finish();
    transcriber->transcribe(
        std::move(recordings[next]),
        [self = shared_from_this()] { return !self->responder.clientGone(); },
        [self = shared_from_this()](const Result<recogniser::Transcript>& heard) {
          if (!heard) return answerFailed(self->responder, 503, heard.error().description);
          self->answers[self->next++].transcript = heard->text;
          self->go();
        });
  }
  void finish() const {
    const std::string personality = describe(name, answers);
    if (personality.empty()) return answerFailed(responder, 422, "No answer could be understood");
    responder.json(200, Json::object({{"success", true},
                                      {"personality", personality},
                                      {"qa_transcript", transcriptOf(answers)}}));
  }
};

std::vector<std::string> questionsIn(const std::vector<server::FormPart>& form) {
  std::vector<std::string> questions;
  const auto* part = server::partNamed(form, "questions");
  const auto list = part ? Json::parse(part->content) : fail("Personality", 1, "no questions");
  if (!list) return questions;
  for (const Json& each : list->items()) questions.push_back(each.stringAt("question", ""));
  return questions;
}

void test(const std::shared_ptr<recogniser::Transcriber>& transcriber, const Request& request,
          const Responder& responder) {
  const auto form = server::parseMultipart(request.header("content-type"), request.body);
  if (!form) return answerFailed(responder, 400, form.error().description);
  const auto* user = server::partNamed(*form, "user_id");
  if (!backend::admits(user ? std::string(user->content) : "", request, responder)) return;
  if (!transcriber) return answerFailed(responder, 503, "There is no recogniser here");
  const auto hearing = std::make_shared<Hearing>(transcriber, responder);
  if (const auto* name = server::partNamed(*form, "user_name"))
    hearing->name = std::string(name->content);
  const auto questions = questionsIn(*form);
  for (size_t i = 0; i < mostAnswers; ++i) {
    const auto* audio = server::partNamed(*form, "audio_" + std::to_string(i));
    if (!audio) break;
    auto samples = wav::readMono(Bytes(audio->content));
    if (!samples) return answerFailed(responder, 400, samples.error().description);
    hearing->recordings.push_back(std::move(*samples));
    hearing->answers.push_back({i < questions.size() ? questions[i] : "Question", ""});
  }
  if (hearing->recordings.empty())
    return answerFailed(responder, 422, "There is no recorded answer");
  hearing->go();
}

void archetype(backend::Store& store, const Request& request, const Responder& responder) {
  if (!backend::admits(request.rest, request, responder)) return;
  const auto dictations = store.history(request.rest, consideredDictations);
  if (!dictations) return backend::answerDone(responder, fail(dictations.error()));
  responder.json(200, classify(*dictations));
}

}  // namespace

void addRoutes(server::Server& server, backend::BackendService& backend,
               std::shared_ptr<recogniser::Transcriber> transcriber) {
  server.route("POST", "/personality-test",
               [transcriber = std::move(transcriber)](const Request& request, const Responder& to) {
                 test(transcriber, request, to);
               });
  backend.addStoreRoute(server, "GET", "/archetype/*", archetype);
  backend.addStoreRoute(server, "POST", "/classify-archetype/*", archetype);
}

}  // namespace kestrin::personality
