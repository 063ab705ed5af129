#include "companion/recogniser/service.h"

#include <charconv>

#include "companion/http/multipart.h"
#include "companion/recogniser/entities.h"
#include "companion/recogniser/voice_labels.h"
#include "platform/audio/wav.h"

namespace kestrin::recogniser {

namespace {

using server::FormPart;
using server::Request;
using server::Responder;

// Below these a label would be a guess.
constexpr double clearGender = 0.8;
constexpr double clearEmotion = 0.5;
constexpr double clearIntent = 0.4;

struct Upload {
  std::vector<float> samples;
  bool wantsProbabilities = false;
  size_t candidates = 5;
};

long numberIn(const std::vector<FormPart>& parts, std::string_view name, long fallback) {
  const FormPart* part = server::partNamed(parts, name);
  if (part == nullptr) return fallback;
  long value = 0;
  const char* end = part->content.data() + part->content.size();
  const auto [stop, error] = std::from_chars(part->content.data(), end, value);
  return error == std::errc() && stop == end ? value : -1;
}

Result<std::vector<float>> pcmSamples(const std::vector<FormPart>& parts,
                                      std::string_view content) {
  const long rate = numberIn(parts, "sample_rate", sampleRate);
  const long channels = numberIn(parts, "channels", 1);
  if (numberIn(parts, "bit_depth", 16) != 16) return fail("Recogniser", 6, "bit_depth must be 16");
  if (rate < 1000 || rate > 384000) return fail("Recogniser", 6, "sample_rate is out of range");
  if (channels < 1 || channels > 32) return fail("Recogniser", 6, "channels is out of range");
  const wav::Sound sound{static_cast<int>(rate), static_cast<int>(channels),
                         wav::fromPcm16(content)};
  const std::vector<float> mono = wav::toMono(sound);
  return rate == sampleRate ? mono : wav::resample(mono, static_cast<int>(rate), sampleRate);
}

Result<Upload> readUpload(const Request& request, bool raw) {
  const auto parts = server::parseMultipart(request.header("content-type"), request.body);
  if (!parts) return fail(parts.error());
  const FormPart* file = server::partNamed(*parts, "file");
  if (file == nullptr) return fail("Recogniser", 6, "The form has no part named file");
  auto samples = raw ? pcmSamples(*parts, file->content) : wav::readMono(file->content, sampleRate);
  if (!samples) return fail(samples.error());
  const FormPart* probabilities = server::partNamed(*parts, "metadata_prob");
  const long candidates = numberIn(*parts, "top_k", 5);
  if (candidates < 0) return fail("Recogniser", 6, "top_k is not a number");
  return Upload{std::move(*samples), probabilities != nullptr && probabilities->content == "true",
                static_cast<size_t>(candidates)};
}

Json candidateList(const Candidates& candidates, size_t count) {
  Json list = Json::array();
  for (size_t i = 0; i < candidates.size() && i < count; ++i) {
    list.push(
        Json::object({{"token", candidates[i].token}, {"probability", candidates[i].probability}}));
  }
  return list;
}

struct AnswerSettings {
  bool withProbabilities = false;
  size_t candidates = 0;
  double seconds = 0;
};

Json answerFor(const Transcript& transcript, const VoiceLabels& labels,
               const AnswerSettings& settings) {
  Json metadata = Json::object();
  if (const auto label = clearLabel(labels.gender, clearGender)) metadata.set("gender", *label);
  if (const auto label = clearLabel(labels.emotion, clearEmotion)) metadata.set("emotion", *label);
  if (const auto label = clearLabel(labels.intent, clearIntent)) metadata.set("intent", *label);
  Json entities = Json::array();
  for (const Entity& entity : findEntities(transcript.text)) {
    entities.push(Json::object({{"type", entity.type}, {"value", entity.value}}));
  }
  Json answer = Json::object({{"transcript", transcript.text},
                              {"metadata", metadata},
                              {"entities", entities},
                              {"confidence", transcript.confidence},
                              {"duration_seconds", settings.seconds}});
  if (settings.withProbabilities) {
    answer.set("metadata_probs",
               Json::object({{"age", Json::array()},
                             {"gender", candidateList(labels.gender, settings.candidates)},
                             {"emotion", candidateList(labels.emotion, settings.candidates)},
                             {"intent", candidateList(labels.intent, settings.candidates)}}));
  }
  return answer;
}

void answerError(const Responder& responder, int status, const std::string& message) {
  responder.text(status, "text/plain; charset=utf-8", message + "\n");
}

void transcribe(Transcriber& transcriber, const Responder& responder, bool raw) {
  Result<Upload> upload = readUpload(responder.request(), raw);
  if (!upload) return answerError(responder, 400, upload.error().description);
  // Measured here: the transcriber's queue is for the engine alone.
  const auto pitch = measurePitch(upload->samples);
  const double level = loudness(upload->samples);
  const AnswerSettings settings{upload->wantsProbabilities, upload->candidates,
                                double(upload->samples.size()) / sampleRate};
  transcriber.transcribe(
      std::move(upload->samples), [responder] { return !responder.clientGone(); },
      [responder, pitch, level, settings](const Result<Transcript>& transcript) {
        if (!transcript) return answerError(responder, 503, transcript.error().description);
        const VoiceLabels labels = labelVoice(transcript->text, pitch, level);
        responder.json(200, answerFor(*transcript, labels, settings));
      });
}

void answerHealth(const Transcriber& transcriber, const Responder& responder) {
  const std::optional<Status> state = transcriber.state();
  Json answer = Json::object({{"service", "recogniser"}});
  if (!state) {
    answer.set("status", "loading");
  } else if (!*state) {
    answer.set("status", "unavailable").set("error", state->error().description);
  } else {
    answer.set("status", "ok");
  }
  responder.json(state && *state ? 200 : 503, answer);
}

}  // namespace

void addRoutes(server::Server& server, Dispatch& dispatch,
               const std::shared_ptr<Transcriber>& transcriber) {
  for (const bool raw : {false, true}) {
    server.route("POST", raw ? "/transcribe/pcm" : "/transcribe",
                 [&dispatch, transcriber, raw](const Request&, const Responder& responder) {
                   // Decoding and resampling a long file takes its time.
                   dispatch.globalQueue()->post(
                       [transcriber, responder, raw] { transcribe(*transcriber, responder, raw); });
                 });
  }
  for (const char* path : {"/", "/health"}) {
    server.route("GET", path, [transcriber](const Request&, const Responder& responder) {
      answerHealth(*transcriber, responder);
    });
  }
}

}  // namespace kestrin::recogniser
