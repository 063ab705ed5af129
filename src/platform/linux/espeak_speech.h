#pragma once

#include "platform/processes.h"
#include "platform/system_speech.h"

namespace kestrin {

/// Speech by espeak-ng, which is on every distribution and needs no service. The text goes to its
/// standard input, so that no text is ever taken for an option.
class EspeakSpeech final : public SystemSpeech {
 public:
  explicit EspeakSpeech(Processes& processes) : processes_(processes) {}

  Result<std::vector<SpeechVoice>> voices() override;
  Result<Bytes> synthesise(const std::string& text, const SpeechStyle& style) override;

 private:
  Processes& processes_;
};

/// The voices in the table that `espeak-ng --voices` prints. Those of another program (mbrola) are
/// left out unless it is there.
std::vector<SpeechVoice> parseEspeakVoices(const std::string& table, bool hasMbrola);

}  // namespace kestrin
