#include "usermodel/preferences/voice_test.h"

#include "platform/text/text.h"

namespace kestrin {

namespace {

std::string nameOf(const SpeechVoice& voice) {
  return text::capitalizeFirst(text::lower(voice.id.substr(voice.id.rfind('.') + 1)));
}

}  // namespace

std::vector<std::string> VoiceTest::voiceNames() const {
  std::vector<std::string> names;
  for (const SpeechVoice& voice : speech_.voices().value_or(std::vector<SpeechVoice>{})) {
    if (names.size() == maxChoices) break;
    names.push_back(nameOf(voice));
  }
  return names;
}

std::string VoiceTest::voiceFor(const std::string& style) const {
  if (style == "Default") return {};
  const auto voices = speech_.voices().value_or(std::vector<SpeechVoice>{});
  // Short identifiers are parts of others: the voice that was chosen by its name comes first.
  for (const SpeechVoice& voice : voices) {
    if (nameOf(voice) == style) return voice.id;
  }
  const std::string wanted = text::lower(style);
  for (const SpeechVoice& voice : voices) {
    if (text::contains(text::lower(voice.id), wanted)) return voice.id;
  }
  return {};
}

Result<Bytes> VoiceTest::speak(const SettingsStore& settings) const {
  return speech_.synthesise(
      sample, {.voiceId = voiceFor(settings.string("pref_voiceStyle", "Default")),
               .wordsPerMinute = settings.number("pref_speechRate", 1.0) * wordsPerMinute});
}

}  // namespace kestrin
