#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "platform/files.h"
#include "platform/http.h"
#include "platform/json/json.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// The best label for each attribute of a voice.
struct VoiceMetadata {
  std::optional<std::string> age;
  std::optional<std::string> gender;
  std::optional<std::string> emotion;
  std::optional<std::string> intent;

  /// Only the attributes that are present.
  Json toJson() const;
  bool operator==(const VoiceMetadata&) const = default;
};

struct MetadataProbability {
  std::string token;
  double probability = 0;

  Json toJson() const;
  static Result<MetadataProbability> fromJson(const Json& json);
  bool operator==(const MetadataProbability&) const = default;
};

/// The ranked candidates for each attribute; an attribute without data has an empty list.
struct VoiceMetadataProbs {
  std::vector<MetadataProbability> age;
  std::vector<MetadataProbability> gender;
  std::vector<MetadataProbability> emotion;
  std::vector<MetadataProbability> intent;

  /// All four keys, always.
  Json toJson() const;
  /// Strict: every key must be there (stored records). Error domain "VoiceMetadataProbs".
  static Result<VoiceMetadataProbs> fromJson(const Json& json);
  bool operator==(const VoiceMetadataProbs&) const = default;
};

struct VoiceEntity {
  std::string type;
  std::string value;

  Json toJson() const;
  bool operator==(const VoiceEntity&) const = default;
};

struct LocalASRResult {
  std::string transcript;
  std::optional<VoiceMetadata> metadata;
  std::optional<VoiceMetadataProbs> metadataProbs;
  std::vector<VoiceEntity> entities;
};

/// Reads a recogniser's answer, tolerantly: what is absent or of another type is left out. Fails on
/// a body that is no JSON (the parser's error) or no object ("LocalASRService", code 4).
Result<LocalASRResult> parseASRResponse(std::string_view body);

/// The client of the speech recogniser. Keeps no state: every call is one independent request.
/// Callable from any thread; the completion runs once, on the session's queue (at once, on the
/// caller's thread, for input that is never sent). No retry here. Errors: domain "LocalASRService"
/// (1 "Invalid ASR URL", "No audio data", 2 "Failed to read audio file", 3 "No data received from
/// ASR", 4 "Invalid JSON response from ASR"), or the transport's, unchanged.
class LocalASRService {
 public:
  using Completion = std::function<void(Result<LocalASRResult>)>;

  LocalASRService(Dispatch& dispatch, Http& http, Files& files, Random& random, Logger& logger,
                  const Endpoints& endpoints);

  /// Sends a WAV file.
  void transcribe(const std::string& audioPath, Completion completion);
  /// Sends signed 16-bit little-endian mono samples.
  void transcribePCM(const Bytes& pcmData, int sampleRate, Completion completion);

 private:
  void send(HttpRequest request, const std::string& errorLabel, Completion completion);

  Dispatch& dispatch_;
  Files& files_;
  Random& random_;
  Logger& logger_;
  std::string baseUrl_;
  std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin
