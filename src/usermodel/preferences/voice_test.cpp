#include "usermodel/preferences/voice_test.h"

#include "platform/text/text.h"

namespace kestrin {

std::vector<std::string> VoiceTest::voiceNames() {
  std::vector<std::string> names;
  for (const SpeechVoice& voice : speech_.voices().value_or(std::vector<SpeechVoice>{})) {
    if (names.size() == maxChoices) break;
    names.push_back(text::capitalizeFirst(text::lower(voice.id.substr(voice.id.rfind('.') + 1))));
  }
  return names;
}

std::string VoiceTest::voiceFor(const std::string& style) {
  if (style == "Default") return {};
  const std::string wanted = text::lower(style);
  for (const SpeechVoice& voice : speech_.voices().value_or(std::vector<SpeechVoice>{})) {
    if (text::contains(text::lower(voice.id), wanted)) return voice.id;
  }
  return {};
}

Result<Bytes> VoiceTest::speak(const SettingsStore& settings) {
  return speech_.synthesise(
      sample, {.voiceId = voiceFor(settings.string("pref_voiceStyle", "Default")),
               .wordsPerMinute = settings.number("pref_speechRate", 1.0) * wordsPerMinute});
}

}  // namespace kestrin
