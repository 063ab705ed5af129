#pragma once

#include <string>
#include <vector>

#include "platform/settings.h"
#include "platform/system_speech.h"

namespace kestrin {

/// The voices of the system as the settings name them, and the sample that "Test voice" speaks.
/// Blocking where it says so.
class VoiceTest {
 public:
  static constexpr const char* sample =
      "Hello! This is a test of the voice settings. The quick brown fox jumps over the lazy dog.";
  static constexpr double wordsPerMinute = 180;  ///< at rate 1
  static constexpr size_t maxChoices = 10;

  explicit VoiceTest(SystemSpeech& speech) : speech_(speech) {}

  /// Names of the first ten voices: what stands behind an identifier's last dot, capitalised.
  /// Blocking.
  std::vector<std::string> voiceNames() const;
  /// The sample as a sound, in the style that the settings ask for; its volume is the player's.
  /// Blocking.
  Result<Bytes> speak(const SettingsStore& settings) const;

 private:
  std::string voiceFor(const std::string& style) const;

  SystemSpeech& speech_;
};

}  // namespace kestrin
