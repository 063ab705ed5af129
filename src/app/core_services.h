#pragma once

#include <memory>
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "dictation/audio_player_service.h"
#include "dictation/transcription_service.h"
#include "identity/device_id_manager.h"
#include "identity/firebase_auth_service.h"
#include "identity/gemini_key_manager.h"
#include "identity/keychain_helper.h"
#include "identity/machine_identity.h"
#include "liveassist/behavioral_profile_manager.h"
#include "notes/local_cache.h"
#include "notes/notes_service.h"
#include "notes/stats_service.h"
#include "platform/platform.h"
#include "research/research_service.h"
#include "services/local/agent_client.h"
#include "services/local/endpoints.h"
#include "services/local/local_asr_service.h"
#include "usermodel/personality/personality_service.h"
#include "usermodel/user_preferences.h"

namespace kestrin {

/// The services that need no desktop: what a dictation from a recording is made of. The terminal's
/// programs make only these; the application makes the rest on top of them.
struct CoreServices {
  CoreServices(Platform& platform, const Endpoints& endpoints,
               const AuthEndpoint& authEndpoint = AuthEndpoint::fromEnvironment());

  /// Token of the signed-in user, if any.
  std::optional<std::string> authToken() const;

  /// Reads what is otherwise read at the first request, on a background queue: the secret and the
  /// identity can keep a caller waiting.
  void warmUp();

  Platform& platform;
  const Endpoints endpoints;
  Logger logger;
  DeviceIdManager deviceId;
  MachineIdentity machineIdentity;
  KeychainHelper keychain;
  GeminiKeyManager geminiKey;
  FirebaseAuthService auth;
  UserPreferences preferences;
  LocalASRService asr;
  AgentClient agent;
  AudioPlayerService player;
  BehavioralProfileManager behavioralProfile;
  LocalCache cache;
  StatsService stats;
  ResearchService research;
  NotesService notes;
  PersonalityService personality;
  Lifetime lifetime;  ///< of what reaches the main queue from other queues
  std::shared_ptr<TranscriptionService> transcription;
};

}  // namespace kestrin
