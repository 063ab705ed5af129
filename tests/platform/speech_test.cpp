#include <cmath>
#include <gtest/gtest.h>
#include <set>

#include "platform/audio/wav.h"
#include "platform/linux/espeak_speech.h"
#include "platform/linux/posix_processes.h"
#include "platform/simulated/simulated_speech.h"

namespace kestrin {
namespace {

struct RealSpeech {
  std::unique_ptr<Processes> processes = makePosixProcesses();
  EspeakSpeech speech{*processes};
};
struct TwinSpeech {
  SimulatedSpeech speech;
};

template <class World>
struct SpeechContract : ::testing::Test {
  World world;
  SystemSpeech& speech = world.speech;

  /// Seconds and the loudest sample.
  std::pair<double, double> measure(const std::string& text, const SpeechStyle& style) {
    const auto bytes = speech.synthesise(text, style);
    const auto sound = bytes ? wav::read(*bytes) : Result<wav::Sound>(fail(bytes.error()));
    EXPECT_TRUE(sound) << sound.error().description;
    double peak = 0;
    if (sound) {
      for (const float sample : sound->samples) peak = std::max(peak, std::fabs(double(sample)));
    }
    return {sound ? sound->seconds() : 0, peak};
  }
};
using Speeches = ::testing::Types<TwinSpeech, RealSpeech>;
TYPED_TEST_SUITE(SpeechContract, Speeches);

TYPED_TEST(SpeechContract, EveryVoiceItListsIsOneItCanUse) {
  const auto voices = this->speech.voices();
  ASSERT_TRUE(voices) << voices.error().description;
  std::set<std::string> ids;
  for (const auto& voice : *voices) {
    EXPECT_TRUE(ids.insert(voice.id).second) << voice.id;
    EXPECT_NE(voice.name, "");
    EXPECT_NE(voice.language, "");
  }
  ASSERT_GE(voices->size(), 2u);
  for (const auto& voice : {voices->front(), voices->back()}) {
    EXPECT_GT(this->measure("one two", {.voiceId = voice.id}).second, 0.01) << voice.id;
  }
  EXPECT_EQ(this->speech.synthesise("one", {.voiceId = "no such voice"}).error().code,
            synthesisFailed);
}

TYPED_TEST(SpeechContract, SpeedAndVolumeAreHeardAndStayWithinTheirLimits) {
  const std::string sentence = "the quick brown fox jumps over the lazy dog";
  const auto [seconds, peak] = this->measure(sentence, {});
  EXPECT_LT(this->measure(sentence, {.wordsPerMinute = 300}).first, seconds);
  EXPECT_GT(this->measure(sentence, {.wordsPerMinute = 100}).first, seconds);
  EXPECT_NEAR(this->measure(sentence, {.wordsPerMinute = 1}).first,
              this->measure(sentence, {.wordsPerMinute = 80}).first, 0.01);
  EXPECT_NEAR(this->measure(sentence, {.volume = 0.5}).second, peak / 2, peak / 10);
  EXPECT_NEAR(this->measure(sentence, {.volume = 7}).second, peak, peak / 100);
  EXPECT_EQ(this->measure(sentence, {.volume = 0}).second, 0);
}

TYPED_TEST(SpeechContract, AnyTextIsSpokenAndNoneIsObeyed) {
  for (const char* text : {"--version", "-f /etc/passwd", "<speak><break time='60s'/></speak> hi",
                           "$(reboot); `reboot`", "gr\xff\xc3\xbc\xc3\x9f dich"}) {
    const auto [seconds, peak] = this->measure(text, {});
    EXPECT_GT(peak, 0.01) << text;
    EXPECT_LT(seconds, 20) << text;
  }
  EXPECT_EQ(this->speech.synthesise(" \n", {}).error().code, nothingToSay);
}

TEST(EspeakVoices, ReadsTheTableAndLeavesOutWhatCannotSpeak) {
  const std::string table =
      "Pty Language       Age/Gender VoiceName          File                 Other Languages\n"
      " 2  en-us           --/M      English_(America)  gmw/en-US            (en 3)\n"
      " 5  en-us           --/F      us-mbrola-1        mb/mb-us1            (en 8)\n"
      " 5  torn\n\n";
  const auto voices = parseEspeakVoices(table, false);
  ASSERT_EQ(voices.size(), 1u);
  EXPECT_EQ(voices[0].id, "gmw/en-US");
  EXPECT_EQ(voices[0].name, "English (America)");
  EXPECT_EQ(voices[0].language, "en-us");
  EXPECT_EQ(parseEspeakVoices(table, true).size(), 2u);
}

}  // namespace
}  // namespace kestrin
