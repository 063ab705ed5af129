#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dictation/audio_recorder.h"
#include "usermodel/personality/personality_service.h"

namespace kestrin {

/// The personality page: the profile with archetype and voice, the spoken test, and what came of
/// it. Main queue only; must be destroyed there.
class PersonalityView {
 public:
  static constexpr int maxRecordingSeconds = 20;
  static constexpr int warningSeconds = 5;
  static constexpr std::chrono::milliseconds pauseAfterAnswer{800};
  enum class State { profile, question, processing, failed };

  struct Services {
    Dispatch& dispatch;
    SettingsStore& settings;
    PersonalityService& personality;
    std::function<std::unique_ptr<AudioRecorder>()> makeRecorder;
  };
  explicit PersonalityView(Services services);

  void load();
  // The test.
  void startTest();
  void toggleRecording();
  void skip();
  void leaveTest();

  State state() const { return state_; }
  const PersonalityQuestion& question() const {
    return personalityQuestions()[currentQuestionIndex_];
  }
  /// "2 of 5"
  std::string progress() const;
  bool isRecording() const { return recorder_ != nullptr; }
  const char* recordTitle() const {
    return isRecording() ? "⏹ Stop Recording" : "🎤 Start Recording";
  }
  /// "0:07"
  std::string timerText() const;
  bool isTimeShort() const { return secondsLeft() <= warningSeconds; }
  float level() const { return level_; }
  /// "✓ Answer recorded", "No audio recorded", or empty.
  const std::string& notice() const { return notice_; }
  /// Why the test failed.
  const std::string& failure() const { return failure_; }

  // The profile.
  bool hasPersonality() const;
  std::string personality() const;
  std::string statusText() const;
  std::string archetypeText() const;
  const std::optional<Archetype>& archetype() const { return archetype_; }
  std::string voiceText() const;
  std::vector<RadarChart> charts() const;

  std::function<void()> onChange;

 private:
  int secondsLeft() const { return maxRecordingSeconds - recordingSeconds_; }
  void startRecording();
  void endRecording();
  void stopRecording();
  void tick();
  void next();
  void personalityTestDidComplete();
  void changed() {
    if (onChange) onChange();
  }

  const Services services_;
  State state_ = State::profile;
  int test_ = 0;  ///< counts the tests that were begun
  size_t currentQuestionIndex_ = 0;
  std::vector<PersonalityAnswer> answers_;
  std::unique_ptr<AudioRecorder> recorder_;
  TimerHandle recordingTimer_, pause_;
  int recordingSeconds_ = 0;
  float level_ = 0;
  std::string notice_, failure_;
  std::optional<Archetype> archetype_;
  std::optional<VoiceProfile> voice_;
  bool isVoiceLoading_ = false;
  Lifetime lifetime_;
};

}  // namespace kestrin
