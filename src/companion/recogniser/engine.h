#pragma once

#include <memory>
#include <span>
#include <string>

#include "platform/result.h"

namespace kestrin::recogniser {

constexpr int sampleRate = 16000;

/// What an engine heard in one piece of sound.
struct Decoded {
  std::string text;  ///< cased and punctuated; empty when nobody spoke
  int tokens = 0;
  double logProbability = 0;  ///< sum over the tokens
  /// The decoder ran in circles and was stopped: what it said last is missing or doubtful.
  bool looped = false;
};

/// A loaded speech model. Not thread-safe: one call at a time.
class Engine {
 public:
  virtual ~Engine() = default;
  /// `samples`: mono at `sampleRate`, -1 to 1, at most about 25 s. Errors: domain "Recogniser".
  virtual Result<Decoded> decode(std::span<const float> samples) = 0;
};

enum class ModelSize { base, tiny };

struct EngineOptions {
  std::string modelsFolder;  ///< with base/, tiny/ and vocabulary.txt
  ModelSize size = ModelSize::base;
};

/// Loads the model and runs it once, so that the first request is as fast as the rest. Blocks for
/// about a second. Errors: domain "Recogniser" (1: built without an engine, 2: files missing or
/// unreadable).
Result<std::unique_ptr<Engine>> loadEngine(const EngineOptions& options);

}  // namespace kestrin::recogniser
