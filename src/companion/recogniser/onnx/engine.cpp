#include "companion/recogniser/engine.h"

#include <array>
#include <cmath>
#include <fstream>
#include <onnxruntime_cxx_api.h>
#include <sstream>

#include "companion/recogniser/vocabulary.h"
#include "platform/text/text.h"

namespace kestrin::recogniser {

namespace {

constexpr double paddingSeconds =
    0.3;  // silence at both ends: the first and last word come out better
constexpr double shortestSeconds = 0.1;
constexpr double tokensPerSecond = 6.5;  // nobody speaks faster; a decoder that does is lost
constexpr double warmUpSeconds = 1.0;
// Noise before the first word makes the model doubt whether anybody speaks: over noise alone it
// ends with a probability above 0.998, over speech with one below 0.99, and goes on well when told
// to.
constexpr double certainEnd = -0.005;  // logarithm

/// A loaded network with the names of its inputs and outputs as the run-time wants them.
class Network {
 public:
  Network(const Ort::Env& env, const std::string& file, const Ort::SessionOptions& options)
      : session(env, file.c_str(), options),
        inputNames(session.GetInputNames()),
        outputNames(session.GetOutputNames()) {
    for (const std::string& name : inputNames) inputs_.push_back(name.c_str());
    for (const std::string& name : outputNames) outputs_.push_back(name.c_str());
  }
  Network(const Network&) = delete;

  std::vector<Ort::Value> run(std::vector<Ort::Value>& values) {
    return session.Run(Ort::RunOptions{nullptr}, inputs_.data(), values.data(), values.size(),
                       outputs_.data(), outputs_.size());
  }

  Ort::Session session;
  const std::vector<std::string> inputNames;
  const std::vector<std::string> outputNames;

 private:
  std::vector<const char*> inputs_;
  std::vector<const char*> outputs_;
};

struct Choice {
  int64_t token = 0;
  double logProbability = 0;
};

/// The token with the largest value; on request the best of those that are no end.
Choice mostLikely(const Ort::Value& logits, bool goOn = false) {
  const float* values = logits.GetTensorData<float>();
  const size_t count = logits.GetTensorTypeAndShapeInfo().GetElementCount();
  size_t best = 0;
  for (size_t i = 1; i < count; ++i) {
    if (goOn && i == size_t(Vocabulary::endToken)) continue;
    if (values[i] > values[best]) best = i;
  }
  double sum = 0;
  for (size_t i = 0; i < count; ++i) sum += std::exp(double(values[i]) - values[best]);
  return {static_cast<int64_t>(best), -std::log(sum)};
}

Ort::SessionOptions sessionOptions() {
  Ort::SessionOptions options;
  options.SetIntraOpNumThreads(1);  // two are not faster with networks of this size
  options.SetInterOpNumThreads(1);
  options.SetGraphOptimizationLevel(ORT_ENABLE_ALL);
  return options;
}

class OnnxEngine : public Engine {
 public:
  OnnxEngine(Vocabulary vocabulary, const std::string& folder)
      : vocabulary_(std::move(vocabulary)),
        env_(ORT_LOGGING_LEVEL_ERROR, "kestrin"),
        encoder_(env_, folder + "/encoder_model.onnx", sessionOptions()),
        decoder_(env_, folder + "/decoder_model_merged.onnx", sessionOptions()) {
    arrangeDecoder();
  }

  Result<Decoded> decode(std::span<const float> samples) override {
    if (samples.size() < shortestSeconds * sampleRate) return Decoded{};
    try {
      return decodeAll(samples);
    } catch (const Ort::Exception& error) {
      return fail("Recogniser", 3, std::string("The speech engine failed: ") + error.what());
    }
  }

 private:
  /// An input that carries the decoder's memory from step to step.
  struct Past {
    size_t input = 0;
    size_t output = 0;
    bool ofEncoder = false;
    std::array<int64_t, 4> emptyShape{};
  };

  void arrangeDecoder() {
    for (size_t i = 0; i < decoder_.inputNames.size(); ++i) {
      const std::string& name = decoder_.inputNames[i];
      if (name == "input_ids") idsInput_ = i;
      if (name == "encoder_hidden_states") hiddenInput_ = i;
      if (name == "use_cache_branch") cacheInput_ = i;
      if (!name.starts_with("past_key_values.")) continue;
      const auto shape =
          decoder_.session.GetInputTypeInfo(i).GetTensorTypeAndShapeInfo().GetShape();
      Past past{i,
                outputNamed(text::replaceAll(name, "past_key_values.", "present.")),
                text::contains(name, ".encoder."),
                {0, shape.at(1), 1, shape.at(3)}};
      pasts_.push_back(past);
    }
    logitsOutput_ = outputNamed("logits");
  }

  size_t outputNamed(const std::string& name) const {
    for (size_t i = 0; i < decoder_.outputNames.size(); ++i) {
      if (decoder_.outputNames[i] == name) return i;
    }
    throw Ort::Exception("the model has no output " + name, ORT_INVALID_GRAPH);
  }

  Ort::Value encode(std::span<const float> samples) {
    const auto padding = static_cast<size_t>(paddingSeconds * sampleRate);
    std::vector<float> padded(samples.size() + 2 * padding);
    std::copy(samples.begin(), samples.end(), padded.begin() + static_cast<ptrdiff_t>(padding));
    const std::array<int64_t, 2> shape{1, static_cast<int64_t>(padded.size())};
    std::vector<Ort::Value> inputs;
    inputs.push_back(
        Ort::Value::CreateTensor<float>(memory_, padded.data(), padded.size(), shape.data(), 2));
    return std::move(encoder_.run(inputs).at(0));
  }

  Decoded decodeAll(std::span<const float> samples) {
    const double seconds = double(samples.size()) / sampleRate;
    const size_t limit =
        std::max<size_t>(4, static_cast<size_t>(std::ceil(seconds * tokensPerSecond)));
    const std::array<int64_t, 2> idShape{1, 1};
    const int64_t one = 1;
    float nothing = 0;
    int64_t token = Vocabulary::startToken;
    bool useCache = false;

    std::vector<Ort::Value> inputs;
    for (size_t i = 0; i < decoder_.inputNames.size(); ++i) inputs.emplace_back(nullptr);
    inputs[idsInput_] = Ort::Value::CreateTensor<int64_t>(memory_, &token, 1, idShape.data(), 2);
    inputs[cacheInput_] = Ort::Value::CreateTensor<bool>(memory_, &useCache, 1, &one, 1);
    inputs[hiddenInput_] = encode(samples);
    for (const Past& past : pasts_) {
      inputs[past.input] =
          Ort::Value::CreateTensor<float>(memory_, &nothing, 0, past.emptyShape.data(), 4);
    }

    Decoded decoded;
    std::vector<int64_t> tokens;
    while (tokens.size() < limit) {
      std::vector<Ort::Value> outputs = decoder_.run(inputs);
      Choice choice = mostLikely(outputs.at(logitsOutput_));
      if (tokens.empty() && choice.token == Vocabulary::endToken &&
          choice.logProbability < certainEnd) {
        choice = mostLikely(outputs.at(logitsOutput_), true);
      }
      decoded.logProbability += choice.logProbability;
      ++decoded.tokens;
      if (choice.token == Vocabulary::endToken) break;
      tokens.push_back(choice.token);
      token = choice.token;
      if (const size_t surplus = repeatedTail(tokens)) {
        tokens.resize(tokens.size() - surplus);
        decoded.looped = true;
        break;
      }
      for (const Past& past : pasts_) {
        // What the decoder knows of the sound is made in the first step only.
        if (!past.ofEncoder || !useCache) inputs[past.input] = std::move(outputs.at(past.output));
      }
      useCache = true;
    }
    decoded.text = vocabulary_.text(tokens);
    return decoded;
  }

  const Vocabulary vocabulary_;
  Ort::Env env_;
  Network encoder_;
  Network decoder_;
  Ort::MemoryInfo memory_ = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU);
  std::vector<Past> pasts_;
  size_t idsInput_ = 0;
  size_t hiddenInput_ = 0;
  size_t cacheInput_ = 0;
  size_t logitsOutput_ = 0;
};

}  // namespace

Result<std::unique_ptr<Engine>> loadEngine(const EngineOptions& options) {
  std::ifstream file(options.modelsFolder + "/vocabulary.txt", std::ios::binary);
  std::ostringstream lines;
  lines << file.rdbuf();
  if (!file) return fail("Recogniser", 2, "No speech model in " + options.modelsFolder);
  Result<Vocabulary> vocabulary = Vocabulary::parse(lines.str());
  if (!vocabulary) return fail(vocabulary.error());
  const std::string folder =
      options.modelsFolder + (options.size == ModelSize::tiny ? "/tiny" : "/base");
  try {
    auto engine = std::make_unique<OnnxEngine>(std::move(*vocabulary), folder);
    const std::vector<float> silence(static_cast<size_t>(warmUpSeconds * sampleRate));
    if (const auto warm = engine->decode(silence); !warm) return fail(warm.error());
    return engine;
  } catch (const std::exception& error) {
    return fail("Recogniser", 2,
                "The speech model in " + folder + " cannot be loaded: " + error.what());
  }
}

}  // namespace kestrin::recogniser
