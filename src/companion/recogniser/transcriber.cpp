#include "companion/recogniser/transcriber.h"

#include <atomic>
#include <cmath>
#include <deque>
#include <mutex>
#include <utility>

namespace kestrin::recogniser {

namespace {

// Beyond about 25 s the model begins to drop sentences and to run in circles.
constexpr size_t longestPiece = 24 * sampleRate;
// A piece in which the engine ran in circles is decoded again in two halves, down to this length.
constexpr size_t shortestToSplit = 6 * sampleRate;
constexpr int mostWaiting = 64;

struct Recording {
  std::vector<float> samples;
  std::deque<Piece> pieces;
  std::function<bool()> isWanted;
  Transcriber::Completion completion;
  std::string text;
  double logProbability = 0;
  int tokens = 0;
};

std::deque<Piece> halves(std::span<const float> samples, Piece piece) {
  const auto cut = cutAtPauses(samples, piece, piece.size() * 2 / 3);
  return {cut.begin(), cut.end()};
}

}  // namespace

struct Transcriber::State : std::enable_shared_from_this<State> {
  explicit State(QueueRef ownQueue) : queue(std::move(ownQueue)) {}

  const QueueRef queue;
  std::unique_ptr<Engine> engine;                    // on `queue` only
  std::vector<std::shared_ptr<Recording>> tooEarly;  // on `queue` only: came before the engine
  std::atomic<int> waiting{0};
  std::atomic<bool> stopped{false};
  mutable std::mutex mutex;
  std::optional<Status> loaded;  // guarded by `mutex`

  std::optional<Status> state() const {
    std::lock_guard lock(mutex);
    return loaded;
  }

  void loadingEnded(const Status& status) {
    {
      std::lock_guard lock(mutex);
      loaded = status;
    }
    for (const auto& recording : std::exchange(tooEarly, {})) step(recording);
  }

  void post(std::shared_ptr<Recording> recording) {
    queue->post(
        [self = shared_from_this(), recording = std::move(recording)] { self->step(recording); });
  }

  void finish(const std::shared_ptr<Recording>& recording, Result<Transcript> result) {
    --waiting;
    recording->completion(std::move(result));
  }

  /// Decodes one piece and goes to the end of the queue with the rest.
  void step(const std::shared_ptr<Recording>& recording) {
    const std::optional<Status> status = state();
    if (!status) return tooEarly.push_back(recording);
    if (!*status) return finish(recording, fail(status->error()));
    if (stopped || !recording->isWanted()) {
      return finish(recording, fail("Recogniser", 4, "Nobody waits for this recording any more"));
    }
    const Piece piece = recording->pieces.front();
    recording->pieces.pop_front();
    const auto sound = std::span(recording->samples).subspan(piece.begin, piece.size());
    if (!isDigitalSilence(sound)) {
      const Result<Decoded> decoded = engine->decode(sound);
      if (!decoded) return finish(recording, fail(decoded.error()));
      if (decoded->looped && piece.size() > shortestToSplit) {
        const auto parts = halves(recording->samples, piece);
        recording->pieces.insert(recording->pieces.begin(), parts.begin(), parts.end());
      } else {
        take(*recording, *decoded);
      }
    }
    if (!recording->pieces.empty()) return post(recording);
    Transcript transcript{std::move(recording->text), 0};
    if (recording->tokens > 0) {
      transcript.confidence = std::exp(recording->logProbability / recording->tokens);
    }
    finish(recording, std::move(transcript));
  }

  static void take(Recording& recording, const Decoded& decoded) {
    if (decoded.text.empty()) return;
    if (!recording.text.empty()) recording.text += ' ';
    recording.text += decoded.text;
    recording.logProbability += decoded.logProbability;
    recording.tokens += decoded.tokens;
  }
};

Transcriber::Transcriber(Dispatch& dispatch)
    : state_(std::make_shared<State>(dispatch.makeQueue("companion.recogniser"))) {}

Transcriber::~Transcriber() { state_->stopped = true; }

void Transcriber::load(Loader loader, std::function<void(const Status&)> onLoaded) {
  state_->queue->post([state = state_, loader = std::move(loader), onLoaded = std::move(onLoaded)] {
    Result<std::unique_ptr<Engine>> engine = loader();
    Status status;
    if (engine) {
      state->engine = std::move(*engine);
    } else {
      status = fail(engine.error());
    }
    if (onLoaded) onLoaded(status);
    state->loadingEnded(status);
  });
}

void Transcriber::transcribe(std::vector<float> samples, std::function<bool()> isWanted,
                             Completion completion) {
  auto recording = std::make_shared<Recording>();
  recording->isWanted = std::move(isWanted);
  recording->completion = std::move(completion);
  const auto pieces = cutAtPauses(samples, {0, samples.size()}, longestPiece);
  recording->pieces.assign(pieces.begin(), pieces.end());
  recording->samples = std::move(samples);
  if (++state_->waiting > mostWaiting) {
    state_->queue->post([state = state_, recording] {
      state->finish(recording, fail("Recogniser", 5, "Too many recordings wait to be recognised"));
    });
    return;
  }
  state_->post(std::move(recording));
}

std::optional<Status> Transcriber::state() const { return state_->state(); }

}  // namespace kestrin::recogniser
