#include "companion/recogniser/transcriber.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "companion/recogniser/entities.h"
#include "companion/recogniser/vocabulary.h"
#include "companion/recogniser/voice_labels.h"
#include "platform/dispatch/simulation.h"

namespace kestrin::recogniser {
namespace {

using ::testing::ElementsAre;

/// A tone of `seconds`, with quiet where `pauses` (in seconds) begin, 0.4 s each.
std::vector<float> sound(double seconds, const std::vector<double>& pauses = {}, double hertz = 200,
                         float level = 0.3f) {
  std::vector<float> samples(static_cast<size_t>(seconds * sampleRate));
  for (size_t i = 0; i < samples.size(); ++i) {
    const double phase = 2 * M_PI * hertz * double(i) / sampleRate;
    samples[i] = level * static_cast<float>(std::sin(phase) + 0.5 * std::sin(2 * phase));
  }
  for (const double pause : pauses) {
    const auto begin = samples.begin() + static_cast<ptrdiff_t>(pause * sampleRate);
    std::fill(begin, begin + static_cast<ptrdiff_t>(0.4 * sampleRate), 0.002f);
  }
  return samples;
}

TEST(Pieces, AreCutInPausesNeverTooLongAndLoseNothing) {
  const auto samples = sound(70, {5, 15.2, 21, 33, 44, 60});
  const auto pieces = cutAtPauses(samples, {0, samples.size()}, 24 * sampleRate);
  ASSERT_GE(pieces.size(), 3u);
  EXPECT_EQ(pieces.front().begin, 0u);
  EXPECT_EQ(pieces.back().end, samples.size());
  for (size_t i = 0; i < pieces.size(); ++i) {
    EXPECT_LE(pieces[i].size(), 24u * sampleRate);
    if (i == 0) continue;
    EXPECT_EQ(pieces[i].begin, pieces[i - 1].end);
    EXPECT_LT(std::abs(samples[pieces[i].begin]), 0.01f)
        << "cut within a word at " << pieces[i].begin;
  }
  EXPECT_THAT(cutAtPauses(samples, {0, 24 * sampleRate}, 24 * sampleRate),
              ElementsAre(Piece{0, 24 * sampleRate}));
}

TEST(Vocabulary, JoinsPiecesBytesAndBlanks) {
  const auto words =
      Vocabulary::parse("<unk>\n<s>\n</s>\n<0xC3>\n<0xA9>\n▁Caf\n▁to\n-\nmorrow\n.\n");
  ASSERT_TRUE(words);
  EXPECT_EQ(words->text(std::vector<int64_t>{1, 5, 3, 4, 6, 7, 8, 9, 2}), "Café tomorrow.");
  EXPECT_EQ(words->text(std::vector<int64_t>{5, 3, -4, 999999}), "Caf\xEF\xBF\xBD");
  EXPECT_FALSE(Vocabulary::parse(""));
}

TEST(RepeatedTail, FindsCirclesAndLeavesSpeechAlone) {
  std::vector<int64_t> tokens{7, 8};
  for (int i = 0; i < 6; ++i) tokens.insert(tokens.end(), {1, 2, 3});
  EXPECT_EQ(repeatedTail(tokens), 15u);  // one of the six stays
  EXPECT_EQ(repeatedTail(std::vector<int64_t>{5, 5, 5, 5, 6, 6, 6, 6, 5, 5, 5, 5}), 0u);
  EXPECT_EQ(repeatedTail(std::vector<int64_t>{}), 0u);
}

/// Hears "w" and the piece's length in seconds; runs in circles above `circlesAbove` seconds.
class FakeEngine : public Engine {
 public:
  explicit FakeEngine(double circlesAbove) : circlesAbove_(circlesAbove) {}
  Result<Decoded> decode(std::span<const float> samples) override {
    const double seconds = double(samples.size()) / sampleRate;
    if (seconds > 23.9) return fail("Recogniser", 3, "broken");
    return Decoded{"w" + std::to_string(std::lround(seconds)), 1, -0.1, seconds > circlesAbove_};
  }

 private:
  double circlesAbove_;
};

class TranscriberTest : public ::testing::Test {
 protected:
  void load(double circlesAbove = 99) {
    transcriber.load([circlesAbove] { return std::make_unique<FakeEngine>(circlesAbove); }, {});
  }
  void transcribe(const std::string& name, std::vector<float> samples, bool wanted = true) {
    transcriber.transcribe(
        std::move(samples), [wanted] { return wanted; },
        [this, name](const Result<Transcript>& transcript) {
          ended.push_back(name + ": " +
                          (transcript ? transcript->text : transcript.error().description));
        });
  }

  std::unique_ptr<Simulation> simulation = Simulation::make();
  Transcriber transcriber{*simulation};
  std::vector<std::string> ended;
};

TEST_F(TranscriberTest, AShortRecordingDoesNotWaitForTheWholeOfALongOne) {
  transcribe("early", sound(2));
  load();
  transcribe("long", sound(60, {20, 40}));
  transcribe("short", sound(3));
  simulation->runReady();
  EXPECT_THAT(ended, ElementsAre("early: w2", "short: w3", "long: w20 w20 w20"));
}

TEST_F(TranscriberTest, APieceThatRunsInCirclesIsTakenApart) {
  load(10);
  transcribe("circles", sound(20, {11}));
  simulation->runReady();
  ASSERT_EQ(ended.size(), 1u);
  EXPECT_EQ(ended[0], "circles: w7 w4 w9") << "cut at the pause, then smaller still";
}

TEST_F(TranscriberTest, SilenceAFailureAndAnAbandonedRecordingEndAsWhatTheyAre) {
  load();
  transcribe("silence", std::vector<float>(5 * sampleRate));
  transcribe("empty", {});
  transcribe("broken", sound(23.95));
  transcribe("abandoned", sound(2), false);
  simulation->runReady();
  EXPECT_THAT(ended, ElementsAre("silence: ", "empty: ", "broken: broken",
                                 "abandoned: Nobody waits for this recording any more"));
}

TEST_F(TranscriberTest, WithoutAnEngineEveryRecordingSaysSo) {
  transcribe("early", sound(2));
  transcriber.load([] { return fail("Recogniser", 2, "no model"); }, {});
  simulation->runReady();
  transcribe("late", sound(2));
  simulation->runReady();
  EXPECT_THAT(ended, ElementsAre("early: no model", "late: no model"));
  EXPECT_FALSE(*transcriber.state());
}

TEST(VoiceLabels, AreGivenOnlyWhereThereIsSomethingToGoBy) {
  const auto low = measurePitch(sound(2, {}, 110));
  const auto high = measurePitch(sound(2, {}, 220));
  ASSERT_TRUE(low && high);
  EXPECT_NEAR(low->medianHertz, 110, 3);
  EXPECT_NEAR(high->medianHertz, 220, 5);
  EXPECT_FALSE(measurePitch(sound(0.3)));
  EXPECT_FALSE(measurePitch(std::vector<float>(2 * sampleRate)));

  const VoiceLabels asked = labelVoice("Can you call Anna?", high, 0.05);
  EXPECT_EQ(clearLabel(asked.gender, 0.8), "female");
  EXPECT_EQ(clearLabel(asked.intent, 0.4), "question");
  EXPECT_EQ(clearLabel(asked.emotion, 0.5), "neutral");
  EXPECT_LT(asked.emotion.front().probability, 0.7);  // words alone prove little
  EXPECT_EQ(labelVoice("Thanks, that is wonderful, I love it!", low, 0.05).emotion.front().token,
            "happy");
  EXPECT_EQ(clearLabel(labelVoice("Yes.", Pitch{165, 0.1}, 0).gender, 0.8), std::nullopt);
  EXPECT_TRUE(labelVoice("", high, 0.5).emotion.empty());
  double sum = 0;
  for (const Candidate& candidate : asked.intent) sum += candidate.probability;
  EXPECT_NEAR(sum, 1, 1e-9);
}

TEST(Entities, AreFoundOnceEachInTheOrderOfTheText) {
  EXPECT_THAT(
      findEntities("Please mail Anna Smith at anna@example.org on March 5th at 3:30 p.m. about "
                   "twenty five chairs for $1,200."),
      ElementsAre(Entity{"name", "Anna Smith"}, Entity{"email", "anna@example.org"},
                  Entity{"date", "March 5th"}, Entity{"time", "3:30 p.m."},
                  Entity{"number", "twenty five"}, Entity{"number", "$1,200"}));
  EXPECT_THAT(findEntities("Next Tuesday I'm away. The rest of us meet tomorrow at noon."),
              ElementsAre(Entity{"date", "Next Tuesday"}, Entity{"date", "tomorrow"},
                          Entity{"time", "noon"}));
  EXPECT_THAT(findEntities("Nothing here. Somebody said I may."), ElementsAre());
}

}  // namespace
}  // namespace kestrin::recogniser
