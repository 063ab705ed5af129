#include <cmath>
#include <gtest/gtest.h>

#include "companion/raw_client.h"
#include "companion/recogniser/service.h"
#include "platform/audio/wav.h"
#include "platform/dispatch/threads.h"

namespace kestrin::recogniser {
namespace {

/// Says how many samples it got.
class CountingEngine : public Engine {
 public:
  Result<Decoded> decode(std::span<const float> samples) override {
    return Decoded{"Call Anna about " + std::to_string(samples.size()) + " samples?", 5, -1};
  }
};

class RecogniserServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    addRoutes(server, *dispatch, transcriber);
    ASSERT_TRUE(server.start());
  }
  std::string post(const std::string& path,
                   const std::vector<std::pair<std::string, std::string>>& fields) {
    std::string body;
    for (const auto& [name, value] : fields) {
      body +=
          "--B\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
    }
    return testing::ask(server.port(), "POST", path, body + "--B--\r\n",
                        "Content-Type: multipart/form-data; boundary=B\r\n");
  }
  static Json bodyOf(const std::string& answer) {
    return Json::parse(answer.substr(answer.find("\r\n\r\n") + 4)).value_or(Json());
  }
  static Bytes tone(size_t count) {
    std::vector<float> samples(count);
    for (size_t i = 0; i < count; ++i) samples[i] = 0.3f * std::sin(0.04f * float(i));  // 102 Hz
    return wav::toPcm16(samples);
  }

  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  std::shared_ptr<Transcriber> transcriber = std::make_shared<Transcriber>(*dispatch);
  server::Server server{*dispatch, {}};
};

TEST_F(RecogniserServiceTest, AnswersRawSamplesAndFilesInTheClientsShape) {
  transcriber->load([] { return std::make_unique<CountingEngine>(); }, {});
  const std::string pcm = tone(32000);
  const Json answer = bodyOf(post("/transcribe/pcm", {{"sample_rate", "16000"},
                                                      {"channels", "1"},
                                                      {"bit_depth", "16"},
                                                      {"metadata_prob", "true"},
                                                      {"top_k", "2"},
                                                      {"file", pcm}}));
  EXPECT_EQ(answer.stringAt("transcript"), "Call Anna about 32000 samples?");
  EXPECT_EQ(answer.objectAt("metadata")->stringAt("intent"), "question");
  EXPECT_EQ(answer.objectAt("metadata")->stringAt("gender"), "male");
  EXPECT_FALSE(answer.objectAt("metadata")->has("age"));
  const Json& probabilities = *answer.objectAt("metadata_probs");
  EXPECT_EQ(probabilities.objectsAt("intent").size(), 2u);
  EXPECT_TRUE(probabilities.objectsAt("intent")[0]->numberAt("probability"));
  EXPECT_TRUE(probabilities.objectsAt("age").empty());
  EXPECT_EQ(answer.objectsAt("entities").at(0)->stringAt("value"), "Anna");

  const Json fromFile = bodyOf(post("/transcribe", {{"file", wav::write(tone(16000), 8000)}}));
  EXPECT_EQ(fromFile.stringAt("transcript"), "Call Anna about 32000 samples?");  // resampled
  EXPECT_FALSE(fromFile.has("metadata_probs"));
}

TEST_F(RecogniserServiceTest, WhatCannotBeRecognisedIsNeverTakenForSilence) {
  transcriber->load([] { return std::make_unique<CountingEngine>(); }, {});
  for (const auto& answer :
       {post("/transcribe", {{"file", "no wave"}}), post("/transcribe", {{"audio", "x"}}),
        post("/transcribe/pcm", {{"sample_rate", "0"}, {"file", tone(1600)}}),
        post("/transcribe/pcm", {{"bit_depth", "24"}, {"file", tone(1600)}}),
        post("/transcribe/pcm", {{"channels", "1e9"}, {"file", tone(1600)}}),
        testing::ask(server.port(), "POST", "/transcribe", "{}",
                     "Content-Type: application/json\r\n")}) {
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 400 ")) << answer;
    EXPECT_FALSE(bodyOf(answer).isObject()) << answer;
  }
}

TEST_F(RecogniserServiceTest, HealthSaysLoadingThenWhyThereIsNoEngine) {
  const std::string loading = testing::ask(server.port(), "GET", "/");
  EXPECT_TRUE(loading.starts_with("HTTP/1.1 503 ")) << loading;
  EXPECT_EQ(bodyOf(loading).stringAt("status"), "loading");
  transcriber->load([] { return fail("Recogniser", 2, "no model here"); }, {});
  const std::string refused = post("/transcribe/pcm", {{"file", tone(16000)}});
  EXPECT_TRUE(refused.starts_with("HTTP/1.1 503 ")) << refused;
  EXPECT_NE(refused.find("no model here"), std::string::npos);
  EXPECT_EQ(bodyOf(testing::ask(server.port(), "GET", "/health")).stringAt("error"),
            "no model here");
}

}  // namespace
}  // namespace kestrin::recogniser
