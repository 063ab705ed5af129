#include "platform/audio/wav.h"

#include <cmath>
#include <gtest/gtest.h>

namespace kestrin::wav {
namespace {

/// A WAV file as foreign programs write it: every size and field can be wrong.
struct Foreign {
  uint32_t tag = 1, channels = 1, rate = 16000, bits = 16;
  bool extensible = false;
  std::string before, after, data;
  long dataSize = -1, riffSize = -1;  ///< -1: the right one

  Bytes bytes() const {
    const auto n = [](uint32_t value, int size) {
      std::string out;
      for (int i = 0; i < size; ++i) out += char(value >> (8 * i));
      return out;
    };
    std::string fmt = n(extensible ? 0xfffe : tag, 2) + n(channels, 2) + n(rate, 4) +
                      n(rate * channels * bits / 8, 4) + n(channels * bits / 8, 2) + n(bits, 2);
    if (extensible)
      fmt += n(22, 2) + n(bits, 2) + n(0, 4) + n(tag, 2) +
             std::string("\0\0\0\0\x10\0\x80\0\0\xaa\0\x38\x9b\x71", 14);
    std::string body = "WAVE" + before + "fmt " + n(uint32_t(fmt.size()), 4) + fmt + "data" +
                       n(uint32_t(dataSize < 0 ? long(data.size()) : dataSize), 4) + data + after;
    return "RIFF" + n(uint32_t(riffSize < 0 ? long(body.size()) : riffSize), 4) + body;
  }
};

std::vector<float> samplesOf(const Foreign& file) {
  const auto sound = read(file.bytes());
  return sound ? sound->samples : std::vector<float>{-99};
}

int errorOf(std::string_view bytes) {
  const auto sound = read(bytes);
  return sound ? 0 : sound.error().code;
}

TEST(Wav, EverySampleFormatDecodesToTheSameValues) {
  const std::vector<float> expected{0.5F, -1};
  Foreign f;
  f.bits = 8, f.data = std::string("\xc0\x00", 2);
  EXPECT_EQ(samplesOf(f), expected);
  f.bits = 16, f.data = std::string("\x00\x40\x00\x80", 4);
  EXPECT_EQ(samplesOf(f), expected);
  f.extensible = true;
  EXPECT_EQ(samplesOf(f), expected);
  f.bits = 24, f.data = std::string("\x00\x00\x40\x00\x00\x80", 6);
  EXPECT_EQ(samplesOf(f), expected);
  f.bits = 32, f.data = std::string("\0\0\0\x40\0\0\0\x80", 8);
  EXPECT_EQ(samplesOf(f), expected);
  f.tag = 3, f.data = std::string("\0\0\0\x3f\0\0\x80\xbf", 8);
  EXPECT_EQ(samplesOf(f), expected);
  f.bits = 64, f.data = std::string("\0\0\0\0\0\0\xe0\x3f\0\0\0\0\0\0\xf0\xbf", 16);
  EXPECT_EQ(samplesOf(f), expected);
  f.bits = 32, f.data = std::string("\0\0\xc0\x7f\0\0\x80\xbf", 8);
  EXPECT_EQ(samplesOf(f), (std::vector<float>{0, -1})) << "what is no number is silence";
}

TEST(Wav, ForgivesWhatWritersGetWrong) {
  const std::vector<float> expected{0.5F, -1};
  Foreign f;
  f.data = std::string("\x00\x40\x00\x80", 4);
  f.before = std::string("LIST\x03\0\0\0abc\0", 12);
  f.after = "LIST____junk";
  EXPECT_EQ(samplesOf(f), expected) << "other chunks around";
  f.before = std::string("LIST\x03\0\0\0abc", 11);
  EXPECT_EQ(samplesOf(f), expected) << "padding forgotten";
  f.before = f.after = "";
  f.riffSize = 0;
  EXPECT_EQ(samplesOf(f), expected) << "RIFF size never filled in";
  for (const long size : {0L, 0xffffffffL, 0x7ffff024L, 0x80000000L}) {
    f.dataSize = size;
    EXPECT_EQ(samplesOf(f), expected) << "streamed, size " << size;
  }
  f.dataSize = 4 + 44;
  EXPECT_EQ(samplesOf(f), expected) << "header counted into the data";
  f.dataSize = -1;
  f.data += '\x01';
  EXPECT_EQ(samplesOf(f), expected) << "half a sample at the end";
}

TEST(Wav, ATornOrEmptyFileIsAClearError) {
  EXPECT_EQ(errorOf(""), noAudio);
  EXPECT_EQ(errorOf("hello, this is text and no sound"), notWav);
  const Bytes whole = write(std::string(32000, 'x'));
  EXPECT_EQ(errorOf(whole), 0);
  EXPECT_EQ(errorOf(std::string_view(whole).substr(0, 10000)), cutShort);
  EXPECT_EQ(errorOf(std::string_view(whole).substr(0, 44)), noAudio);
  EXPECT_EQ(errorOf(std::string_view(whole).substr(0, 30)), notWav);
  EXPECT_EQ(errorOf(write("")), noAudio);
  Foreign odd;
  odd.data = "abcd";
  odd.tag = 85;
  EXPECT_EQ(errorOf(odd.bytes()), unsupportedFormat);
  odd.tag = 1, odd.channels = 0;
  EXPECT_EQ(errorOf(odd.bytes()), unsupportedFormat);
  odd.channels = 1, odd.rate = 3;
  EXPECT_EQ(errorOf(odd.bytes()), unsupportedFormat);
  // Every possible cut of a small file ends in a value or an error with words.
  const Bytes small = write("abcdefgh");
  for (size_t cut = 0; cut < small.size(); ++cut) {
    const auto sound = read(std::string_view(small).substr(0, cut));
    EXPECT_TRUE(sound ? sound->frames() > 0 : !sound.error().description.empty()) << cut;
  }
}

TEST(Wav, PcmSurvivesTheWayThroughAFileExactly) {
  Bytes pcm;
  for (int value = -32768; value < 32768; value += 13)
    pcm += {char(value & 0xff), char(value >> 8)};
  EXPECT_EQ(readPcm16(write(pcm)).value(), pcm);
  EXPECT_EQ(toPcm16(std::vector<float>{1.5F, -1.5F, NAN}), Bytes("\xff\x7f\x00\x80\x00\x00", 6));
}

TEST(Wav, ResamplingKeepsSpeechAndDropsWhatWouldAlias) {
  for (const int rate : {8000, 11025, 22050, 44100, 48000, 96000}) {
    const auto levelOf = [rate](double hertz) {
      std::vector<float> tone(size_t(rate), 0);
      for (size_t i = 0; i < tone.size(); ++i)
        tone[i] = float(std::sin(2 * M_PI * hertz * double(i) / rate));
      const auto out = resample(tone, rate, 16000);
      EXPECT_EQ(out.size(), 16000U) << rate;
      double sum = 0;
      for (size_t i = 2000; i < 14000; ++i) sum += double(out[i]) * out[i];
      return std::sqrt(sum / 12000 * 2);
    };
    EXPECT_NEAR(levelOf(1000), 1, 0.01) << rate;
    EXPECT_NEAR(levelOf(3000), 1, 0.01) << rate;
    if (rate >= 44100) {
      EXPECT_LT(levelOf(11000), 0.01) << rate;
    }
  }
  const Sound stereo{48000, 2, {1, 0, 0.5F, 0.5F}};
  EXPECT_EQ(toMono(stereo), (std::vector<float>{0.5F, 0.5F}));
}

}  // namespace
}  // namespace kestrin::wav
