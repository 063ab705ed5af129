#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "identity/device_id_manager.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/http.h"
#include "platform/lifetime.h"
#include "services/local/endpoints.h"
#include "usermodel/personality/personality_records.h"
#include "usermodel/user_preferences.h"

namespace kestrin {

/// The backend's personality test, archetype and voice profile. The user is this device. Archetype
/// and voice profile are kept for 300 s. Main queue only; must be destroyed there.
class PersonalityService {
 public:
  static constexpr std::chrono::seconds testTimeout{120}, refreshTimeout{30}, cacheExpiry{300};
  template <class T>
  using Completion = std::function<void(const T&)>;

  struct Services {
    Dispatch& dispatch;
    Http& http;
    Random& random;
    SettingsStore& settings;
    Logger& logger;
    DeviceIdManager& deviceId;
    UserPreferences& preferences;
    Endpoints endpoints;
  };
  explicit PersonalityService(Services services);

  /// Sends the answers; the personality comes back, and what was said is stored. Errors: the
  /// transport's, or domain "PersonalityService".
  void processPersonalityTest(std::vector<PersonalityAnswer> answers,
                              Completion<Result<std::string>> completion);
  /// Replaces the stored personality with what the backend makes of it now.
  void refreshPersonality(const std::string& voiceProfileSummary,
                          Completion<Result<std::string>> completion);

  /// Never fails: the default stands for what cannot be had.
  void getArchetype(Completion<Archetype> completion);
  /// Anew, from all that is known; stored on success. Errors: domain "ArchetypeService", or the
  /// transport's.
  void classifyArchetype(Completion<Result<Archetype>> completion);
  bool isDefault() const { return isDefault_; }
  /// Of the archetype that this run asked for; nothing before, and nothing while only the default
  /// is known but an earlier run stored one. Thread-safe.
  std::optional<std::string> stylePrompt() const;

  /// Nothing when there is none.
  void fetchProfile(bool force, Completion<std::optional<VoiceProfile>> completion);
  /// After a dictation: the next reader fetches afresh.
  void forgetVoiceProfile();

 private:
  /// `announcement` is printed with the id behind it.
  void request(const char* method, const std::string& path, std::function<void(Json&)> fill,
               std::chrono::seconds timeout, Completion<Result<Json>> completion,
               const std::string& announcement = {});
  bool isFresh(const std::optional<SteadyTime>& time) const;
  void setStylePrompt(std::string stylePrompt);

  const Services services_;
  const std::shared_ptr<HttpSession> session_;
  std::optional<Archetype> cachedArchetype_;
  std::optional<SteadyTime> lastFetchTime_;
  bool isDefault_ = false;
  mutable std::mutex mutex_;
  std::optional<std::string> stylePrompt_;  ///< under mutex_
  std::optional<VoiceProfile> profile_;
  std::optional<SteadyTime> lastFetch_;
  int forgotten_ = 0;  ///< what was asked for before the last time is not kept
  Lifetime lifetime_;
};

}  // namespace kestrin
