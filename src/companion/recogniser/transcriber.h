#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/recogniser/engine.h"
#include "companion/recogniser/pieces.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin::recogniser {

struct Transcript {
  std::string text;
  /// Mean probability that the engine gave its own words, 0 to 1; below about 0.6 words are
  /// doubtful.
  double confidence = 0;
};

/// Recognises whole recordings with one engine, one piece at a time. Recordings that come while
/// others are being recognised take turns piece by piece, so that a short one never waits for the
/// whole of a long one. Thread-safe; nothing waits.
class Transcriber {
 public:
  explicit Transcriber(Dispatch& dispatch);
  ~Transcriber();

  using Loader = std::function<Result<std::unique_ptr<Engine>>()>;
  /// Loads the engine on the transcriber's own queue and says there how that ended. Recordings that
  /// come before it is loaded wait for it. Once.
  void load(Loader loader, std::function<void(const Status&)> onLoaded);

  using Completion = std::function<void(Result<Transcript>)>;
  /// `samples`: mono at `sampleRate`. `isWanted` is asked before each piece; once it says no the
  /// rest is left and the completion comes with an error. The completion runs on the transcriber's
  /// queue. Errors: domain "Recogniser" (the loader's and the engine's, 4: nobody waits, 5: too
  /// many recordings wait).
  void transcribe(std::vector<float> samples, std::function<bool()> isWanted,
                  Completion completion);

  /// Nothing while the engine is being loaded; then whether it is there.
  std::optional<Status> state() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace kestrin::recogniser
