#include "app/core_services.h"

#include <utility>

namespace kestrin {
namespace {

using Told = std::function<void(Result<std::string>)>;

RequestContextSources contextSources(Dispatch& dispatch, const Lifetime& lifetime,
                                     AudioPlayerService& player, const FirebaseAuthService& auth,
                                     const BehavioralProfileManager& behavioralProfile,
                                     PersonalityService& personality) {
  RequestContextSources sources;
  sources.archetypeStylePrompt = [&personality] { return personality.stylePrompt(); };
  // Streams end on queues of their own; who the user is belongs to the main queue.
  const std::function<void(const std::string&, const Told&)> refresh =
      lifetime.guard([&personality](const std::string& summary, const Told& told) {
        personality.refreshPersonality(summary, told);
      });
  sources.refreshPersonality = [main = dispatch.mainQueue(), refresh](
                                   const std::string&, const std::string& summary, Told told) {
    main->post([refresh, summary, told = std::move(told)] { refresh(summary, told); });
  };
  const std::function<void(const Told&)> classify =
      lifetime.guard([&personality](const Told& told) {
        personality.classifyArchetype([told](const Result<Archetype>& archetype) {
          told(archetype.transform([](const Archetype& known) { return known.name; }));
        });
      });
  sources.classifyArchetype = [main = dispatch.mainQueue(), classify](const std::string&,
                                                                      Told told) {
    main->post([classify, told = std::move(told)] { classify(told); });
  };
  sources.voiceProfileSummary = [&behavioralProfile] {
    return behavioralProfile.voiceProfileSummary();
  };
  sources.signedInUser = [&auth] { return auth.currentUser(); };
  sources.playAudio = [&player](Bytes audio, std::function<void()> completion) {
    player.play(std::move(audio), std::move(completion));
  };
  return sources;
}

}  // namespace

CoreServices::CoreServices(Platform& p, const Endpoints& e, const AuthEndpoint& authEndpoint)
    : platform(p),
      endpoints(e),
      logger(p.dispatch, p.notifications),
      deviceId(p.files, p.settings, p.random),
      machineIdentity(p.controls, p.settings),
      keychain(p.secrets, logger),
      geminiKey(keychain, p.settings),
      auth(p.dispatch, p.http, p.files, logger, authEndpoint),
      preferences(p.settings),
      asr(p.dispatch, p.http, p.files, p.random, logger, e),
      agent(p.http, e),
      player(p.dispatch, p.audio, p.settings, logger),
      behavioralProfile(p.dispatch, p.settings),
      cache(p.files, logger),
      stats(p.http, logger, cache, e),
      research(p.dispatch, p.http, logger, deviceId, auth, e,
               [this](Json& body) {
                 setModelFields(body, platform.settings, geminiKey);
                 const auto search = platform.settings.string("pref_searchEndpoint");
                 if (!search.empty()) body.set("search_url", search);
                 platform.settings.countUp("totalResearchSessions");
               }),
      notes({p.dispatch, p.http, p.settings, logger, asr, agent, cache, deviceId, geminiKey,
             preferences},
            e),
      personality({p.dispatch, p.http, p.random, p.settings, logger, deviceId, preferences, e}),
      transcription(std::make_shared<TranscriptionService>(
          p.dispatch, p.http, p.settings, p.notifications, logger, asr, preferences, deviceId,
          geminiKey, e,
          contextSources(p.dispatch, lifetime, player, auth, behavioralProfile, personality))) {}

std::optional<std::string> CoreServices::authToken() const {
  const auto user = auth.currentUser();
  return user ? std::optional(user->idToken) : std::nullopt;
}

void CoreServices::warmUp() {
  platform.dispatch.globalQueue()->post([this] {
    deviceId.deviceId();
    geminiKey.apiKey();
  });
}

}  // namespace kestrin
