#include "liveassist/behavioral_profile_manager.h"

#include <utility>

#include "platform/observers.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr double simpleWeight = 0.8;
constexpr double otherEmotionsWeight = 0.03;

std::string dayOf(const std::string& iso8601) { return iso8601.substr(0, 10); }

std::string plainLabel(const std::string& label, std::string_view prefix) {
  return text::replaceAll(text::upper(label), prefix, "");
}

}  // namespace

/// What jobs on the profile queue share with the manager.
struct BehavioralProfileManager::State {
  State(Clock& c, SettingsStore& s) : clock(c), settings(s) {}

  // Profile queue:
  void load() {
    const auto stored = settings.get(userDefaultsKey);
    if (const auto decoded = stored ? BehavioralProfile::fromJson(*stored) : std::nullopt)
      user = *decoded;
  }
  void save() {
    settings.set(userDefaultsKey, user.toJson());
    settings.set(userProfileDateKey, Json(dates::iso8601(clock.wallNow())));
    changed = false;
  }
  bool resetIfOfAnotherDay() {
    const std::string stored = settings.string(userProfileDateKey);
    if (stored.empty() || dayOf(stored) == dayOf(dates::iso8601(clock.wallNow()))) return false;
    user = BehavioralProfile::empty();
    save();
    return true;
  }

  Clock& clock;
  SettingsStore& settings;
  BehavioralProfile user = BehavioralProfile::empty();
  BehavioralProfile system = BehavioralProfile::empty();
  bool changed = false;  ///< the user's profile, since it was saved

  Observers<> observers;  ///< on the main queue
};

BehavioralProfileManager::BehavioralProfileManager(Dispatch& dispatch, SettingsStore& settings)
    : dispatch_(dispatch),
      profileQueue_(dispatch.makeQueue("com.kestrin.behavioral-profile")),
      state_(std::make_shared<State>(dispatch.clock(), settings)) {
  state_->load();
  state_->resetIfOfAnotherDay();
}

BehavioralProfileManager::~BehavioralProfileManager() {
  // What still runs there uses the settings.
  profileQueue_->sync([] {});
}

BehavioralProfile BehavioralProfileManager::profile(LAAudioChannel channel) const {
  BehavioralProfile copy;
  profileQueue_->sync(
      [&] { copy = channel == LAAudioChannel::microphone ? state_->user : state_->system; });
  return copy;
}

SubscriptionHandle BehavioralProfileManager::observe(std::function<void()> onProfileUpdate) {
  return state_->observers.add(std::move(onProfileUpdate));
}

void BehavioralProfileManager::post(std::function<bool(State&)> change) {
  profileQueue_->post([state = state_, change = std::move(change), main = dispatch_.mainQueue()] {
    if (!change(*state)) return;
    main->post([weak = std::weak_ptr(state)] {
      if (const auto alive = weak.lock()) alive->observers.notify();
    });
  });
}

void BehavioralProfileManager::update(LAAudioChannel channel,
                                      const std::map<std::string, double>& emotionProbs,
                                      const std::map<std::string, double>& intentProbs) {
  post([=](State& state) {
    const bool isUser = channel == LAAudioChannel::microphone;
    (isUser ? state.user : state.system).emaUpdate(emotionProbs, intentProbs);
    state.changed |= isUser;
    return true;
  });
}

void BehavioralProfileManager::updateSimple(LAAudioChannel channel, const std::string& emotion,
                                            const std::string& intent) {
  const std::string heard = plainLabel(emotion, "EMOTION_");
  std::map<std::string, double> emotionProbs;
  for (const BehaviorEmotion each : allBehaviorEmotions)
    emotionProbs[rawValue(each)] = heard == rawValue(each) ? simpleWeight : otherEmotionsWeight;
  update(channel, emotionProbs, {{plainLabel(intent, "INTENT_"), simpleWeight}});
}

void BehavioralProfileManager::resetSystemProfile() {
  post([](State& state) {
    state.system = BehavioralProfile::empty();
    return true;
  });
}

void BehavioralProfileManager::resetUserProfileIfNeeded() {
  post([](State& state) { return state.resetIfOfAnotherDay(); });
}

void BehavioralProfileManager::persistUserProfile() {
  post([](State& state) {
    state.save();
    return false;
  });
}

void BehavioralProfileManager::persistIfChanged() {
  post([](State& state) {
    if (state.changed) state.save();
    return false;
  });
}

std::string BehavioralProfileManager::voiceProfileSummary() const {
  return userProfile().summary();
}

}  // namespace kestrin
