#include <cmath>
#include <future>
#include <gtest/gtest.h>
#include <random>

#include "companion/engine/speech_samples.h"
#include "companion/recogniser/transcriber.h"
#include "platform/dispatch/threads.h"

namespace kestrin::recogniser {
namespace {

using kestrin::testing::SpeechSample;

const std::vector<SpeechSample>& synthesisedOnce() {
  static const auto samples = testing::synthesised(::testing::TempDir());
  return samples;
}

class RecogniserTest : public ::testing::TestWithParam<ModelSize> {
 protected:
  void SetUp() override {
    const EngineOptions options{KESTRIN_BINARY_DIR "/share/kestrin/models", GetParam()};
    transcriber->load([options] { return loadEngine(options); }, {});
  }
  std::future<Result<Transcript>> start(std::vector<float> samples) {
    auto promise = std::make_shared<std::promise<Result<Transcript>>>();
    transcriber->transcribe(
        std::move(samples), [] { return true; },
        [promise](Result<Transcript> result) { promise->set_value(std::move(result)); });
    return promise->get_future();
  }
  std::string hear(std::vector<float> samples) {
    const auto result = start(std::move(samples)).get();
    EXPECT_TRUE(result) << result.error().description;
    return result ? result->text : "";
  }
  /// Share of wrong words over all samples, which are recognised side by side.
  double errorRate(const std::vector<SpeechSample>& samples) {
    std::vector<std::future<Result<Transcript>>> results;
    for (const SpeechSample& sample : samples) results.push_back(start(sample.samples));
    size_t errors = 0, words = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
      const auto heard = results[i].get();
      EXPECT_TRUE(heard);
      const size_t wrong = testing::wordErrors(samples[i].words, heard ? heard->text : "");
      if (wrong > 0) std::cout << samples[i].words << "\n  heard: " << heard->text << "\n";
      errors += wrong;
      words += testing::plainWords(samples[i].words).size();
    }
    return words == 0 ? 1 : double(errors) / double(words);
  }

  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  std::unique_ptr<Transcriber> transcriber = std::make_unique<Transcriber>(*dispatch);
};

// The bounds are several times what was measured; a broken decoder is far beyond them.
TEST_P(RecogniserTest, UnderstandsPeopleAndTheSynthesiser) {
  auto samples = testing::readAloud();
  const auto& synthesised = synthesisedOnce();
  if (samples.empty() && synthesised.empty()) GTEST_SKIP() << "no recordings are installed";
  samples.insert(samples.end(), synthesised.begin(), synthesised.end());
  const double rate = errorRate(samples);
  std::cout << samples.size() << " recordings, word error rate " << rate << "\n";
  EXPECT_LT(rate, GetParam() == ModelSize::base ? 0.08 : 0.15);
}

TEST_P(RecogniserTest, HearsNothingWhereNobodySpeaks) {
  EXPECT_EQ(hear(std::vector<float>(3 * sampleRate)), "");
  std::mt19937 random(1);
  std::normal_distribution<float> noise(0, 0.01f);
  std::vector<float> hiss(4 * sampleRate);
  for (float& sample : hiss) sample = noise(random);
  EXPECT_EQ(hear(hiss), "");
  std::vector<float> hum(3 * sampleRate);
  for (size_t i = 0; i < hum.size(); ++i) hum[i] = 0.1f * std::sin(float(i) * 0.04f);
  EXPECT_EQ(hear(hum), "");
  EXPECT_EQ(hear(std::vector<float>(100, 0.5f)), "");
  EXPECT_EQ(hear({}), "");
}

// A microphone is never quite silent, and nobody begins at once.
TEST_P(RecogniserTest, NoiseAndAPauseBeforeTheFirstWordCostNoRecording) {
  const auto& sentences = synthesisedOnce();
  if (sentences.empty()) GTEST_SKIP() << "no synthesiser is installed";
  std::mt19937 random(2);
  std::normal_distribution<float> noise(0, 1);
  std::vector<SpeechSample> noisy;
  for (const SpeechSample& sentence : sentences) {
    for (const auto& [level, pause] : {std::pair(0.001f, 3), {0.001f, 1}, {0.005f, 2}}) {
      SpeechSample sample{sentence.name, sentence.words,
                          std::vector<float>(size_t(pause) * sampleRate / 2)};
      sample.samples.insert(sample.samples.end(), sentence.samples.begin(), sentence.samples.end());
      sample.samples.resize(sample.samples.size() + sampleRate / 2);
      for (float& each : sample.samples) each += level * noise(random);
      noisy.push_back(std::move(sample));
    }
  }
  EXPECT_LT(errorRate(noisy), GetParam() == ModelSize::base ? 0.08 : 0.15);
}

TEST_P(RecogniserTest, LosesNothingOfALongRecording) {
  const auto& sentences = synthesisedOnce();
  if (sentences.empty()) GTEST_SKIP() << "no synthesiser is installed";
  SpeechSample whole;
  for (size_t i = 0; whole.samples.size() < 70u * sampleRate; ++i) {
    const SpeechSample& next = sentences[i % sentences.size()];
    whole.words += next.words + " ";
    whole.samples.insert(whole.samples.end(), next.samples.begin(), next.samples.end());
    whole.samples.resize(whole.samples.size() + sampleRate / 2);
  }
  EXPECT_LT(errorRate({whole}), 0.1);
}

INSTANTIATE_TEST_SUITE_P(Models, RecogniserTest,
                         ::testing::Values(ModelSize::base, ModelSize::tiny), [](const auto& info) {
                           return info.param == ModelSize::base ? "base" : "tiny";
                         });

TEST(LoadEngine, AMissingModelIsAnErrorWithItsFolder) {
  const auto engine = loadEngine({"/nowhere", ModelSize::base});
  ASSERT_FALSE(engine);
  EXPECT_NE(engine.error().description.find("/nowhere"), std::string::npos);
}

}  // namespace
}  // namespace kestrin::recogniser
