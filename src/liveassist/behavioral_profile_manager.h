#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "liveassist/audio_channel.h"
#include "liveassist/behavioral_profile.h"
#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "platform/settings.h"

namespace kestrin {

/// Keeps how the user (`microphone`) and the other side (`system`) sound. The user's profile counts
/// for the current day (UTC) and outlives the program; the other side's lasts for one session.
/// Thread-safe; a read waits for the changes made before it, which never wait themselves.
class BehavioralProfileManager {
 public:
  static constexpr const char* userDefaultsKey = "behavioralProfile_user";
  static constexpr const char* userProfileDateKey = "behavioralProfile_userDate";

  /// Reads the user's profile of today from the settings.
  BehavioralProfileManager(Dispatch& dispatch, SettingsStore& settings);
  ~BehavioralProfileManager();
  BehavioralProfileManager(const BehavioralProfileManager&) = delete;
  BehavioralProfileManager& operator=(const BehavioralProfileManager&) = delete;

  BehavioralProfile userProfile() const { return profile(LAAudioChannel::microphone); }
  BehavioralProfile systemProfile() const { return profile(LAAudioChannel::system); }
  BehavioralProfile profile(LAAudioChannel channel) const;

  /// `onProfileUpdate` runs on the main queue after each change while the handle lives. Main queue.
  SubscriptionHandle observe(std::function<void()> onProfileUpdate);

  // These return at once:

  /// Folds in a segment's probabilities by label.
  void update(LAAudioChannel channel, const std::map<std::string, double>& emotionProbs,
              const std::map<std::string, double>& intentProbs);
  /// As `update`, for a segment with plain labels only.
  void updateSimple(LAAudioChannel channel, const std::string& emotion, const std::string& intent);
  void resetSystemProfile();
  /// A stored profile of another day is forgotten, also on disk.
  void resetUserProfileIfNeeded();
  void persistUserProfile();
  /// As `persistUserProfile`, unless nothing came since the last time.
  void persistIfChanged();

  /// What dictation and the refresh of the personality send along; empty without segments today.
  std::string voiceProfileSummary() const;

 private:
  struct State;
  /// `change` runs on the profile queue and says whether there is anything to tell.
  void post(std::function<bool(State&)> change);

  Dispatch& dispatch_;
  const QueueRef profileQueue_;
  const std::shared_ptr<State> state_;
};

}  // namespace kestrin
