#include "usermodel/personality/personality_view.h"

#include <utility>

#include "platform/audio/wav.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

}  // namespace

PersonalityView::PersonalityView(Services services) : services_(std::move(services)) {}

void PersonalityView::load() {
  isVoiceLoading_ = true;
  services_.personality.getArchetype(lifetime_.guard([this](const Archetype& archetype) {
    archetype_ = archetype;
    changed();
  }));
  services_.personality.fetchProfile(
      false, lifetime_.guard([this](const std::optional<VoiceProfile>& profile) {
        isVoiceLoading_ = false;
        voice_ = profile;
        changed();
      }));
  changed();
}

/// The recorder is not waited for.
void PersonalityView::endRecording() {
  AudioRecorder::retire(std::move(recorder_));
  recordingTimer_.reset();
}

void PersonalityView::startTest() {
  endRecording();
  pause_.reset();
  ++test_;
  answers_.clear();
  currentQuestionIndex_ = 0;
  notice_.clear();
  failure_.clear();
  state_ = State::question;
  changed();
}

void PersonalityView::leaveTest() {
  endRecording();
  pause_.reset();
  state_ = State::profile;
  changed();
}

std::string PersonalityView::progress() const {
  return std::to_string(currentQuestionIndex_ + 1) + " of " +
         std::to_string(personalityQuestions().size());
}

std::string PersonalityView::timerText() const {
  const int left = secondsLeft();
  return std::string("0:") + (left < 10 ? "0" : "") + std::to_string(left);
}

void PersonalityView::toggleRecording() {
  if (state_ != State::question || pause_) return;
  recorder_ ? stopRecording() : startRecording();
}

void PersonalityView::startRecording() {
  recorder_ = services_.makeRecorder();
  recordingSeconds_ = 0;
  level_ = 0;
  notice_.clear();
  recorder_->startRecording(
      [this](float level) {
        level_ = level;
        changed();
      },
      lifetime_.guard([this](const Status& started) {
        if (started || !recorder_) return;
        endRecording();
        notice_ = started.error().description;
        changed();
      }));
  recordingTimer_ = services_.dispatch.every(services_.dispatch.mainQueue(), 1s,
                                             lifetime_.guard([this] { tick(); }));
  changed();
}

void PersonalityView::tick() {
  ++recordingSeconds_;
  if (recordingSeconds_ >= maxRecordingSeconds) return stopRecording();
  changed();
}

void PersonalityView::stopRecording() {
  if (!recorder_) return;
  const Bytes pcm = recorder_->stopRecordingWithPCM().pcmData;
  const int duration = recorder_->audioDurationMs();
  endRecording();
  if (pcm.empty()) {
    notice_ = "No audio recorded";
    recordingSeconds_ = 0;
    return changed();
  }
  notice_ = "✓ Answer recorded";
  answers_.push_back({question().id, wav::write(pcm), duration});
  pause_ = services_.dispatch.after(services_.dispatch.mainQueue(), pauseAfterAnswer,
                                    lifetime_.guard([this] { next(); }));
  changed();
}

void PersonalityView::skip() {
  if (state_ != State::question || pause_) return;
  endRecording();
  next();
}

void PersonalityView::next() {
  pause_.reset();
  notice_.clear();
  recordingSeconds_ = 0;
  if (++currentQuestionIndex_ < personalityQuestions().size()) return changed();
  currentQuestionIndex_ = personalityQuestions().size() - 1;
  personalityTestDidComplete();
}

void PersonalityView::personalityTestDidComplete() {
  state_ = State::processing;
  changed();
  services_.personality.processPersonalityTest(
      std::exchange(answers_, {}),
      lifetime_.guard([this, test = test_](const Result<std::string>& personality) {
        // What came of an earlier test does not get into the way of the one that was begun since.
        const bool isLatest = test == test_;
        if (!personality) {
          if (!isLatest) return;
          state_ = State::failed;
          failure_ = personality.error().description;
          return changed();
        }
        if (isLatest) state_ = State::profile;
        archetype_.reset();
        changed();
        // From what was just said, too.
        services_.personality.classifyArchetype(
            lifetime_.guard([this](const Result<Archetype>& archetype) {
              archetype_ = archetype.value_or(Archetype::defaultArchetype());
              load();
            }));
      }));
}

bool PersonalityView::hasPersonality() const { return !personality().empty(); }

std::string PersonalityView::personality() const {
  return services_.settings.string(UserPreferences::userPersonalityKey);
}

std::string PersonalityView::statusText() const {
  return hasPersonality() ? "Personality profile active" : "No personality profile yet";
}

std::string PersonalityView::archetypeText() const {
  if (!archetype_) return "🎭 Archetype: Analyzing your voice patterns...";
  return archetype_->emoji + " " + archetype_->name;
}

std::string PersonalityView::voiceText() const {
  if (isVoiceLoading_) return "📊 Loading voice profile...";
  if (!voice_) return "🎤 Start using voice commands to build your profile";
  return std::to_string(voice_->sampleCount) + " voice samples analyzed";
}

std::vector<RadarChart> PersonalityView::charts() const {
  return voice_ ? radarCharts(*voice_) : std::vector<RadarChart>{};
}

}  // namespace kestrin
