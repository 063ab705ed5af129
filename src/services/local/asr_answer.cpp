#include "services/local/local_asr_service.h"

namespace kestrin {
namespace {

Json listOf(const std::vector<MetadataProbability>& list) {
  Json out = Json::array();
  for (const auto& entry : list) out.push(entry.toJson());
  return out;
}

std::vector<MetadataProbability> parseProbs(const Json& probs, std::string_view key) {
  std::vector<MetadataProbability> out;
  for (const Json* entry : probs.objectsAt(key)) {
    if (auto parsed = MetadataProbability::fromJson(*entry)) out.push_back(std::move(*parsed));
  }
  return out;
}

}  // namespace

Json VoiceMetadata::toJson() const {
  Json out = Json::object();
  if (age) out.set("age", *age);
  if (gender) out.set("gender", *gender);
  if (emotion) out.set("emotion", *emotion);
  if (intent) out.set("intent", *intent);
  return out;
}

Json MetadataProbability::toJson() const {
  return Json::object({{"token", token}, {"probability", probability}});
}

Result<MetadataProbability> MetadataProbability::fromJson(const Json& json) {
  const auto token = json.stringAt("token");
  const auto probability = json.numberAt("probability");
  if (!token || !probability)
    return fail("MetadataProbability", 1, "token or probability is missing");
  return MetadataProbability{*token, *probability};
}

Json VoiceMetadataProbs::toJson() const {
  return Json::object({{"age", listOf(age)},
                       {"gender", listOf(gender)},
                       {"emotion", listOf(emotion)},
                       {"intent", listOf(intent)}});
}

Result<VoiceMetadataProbs> VoiceMetadataProbs::fromJson(const Json& json) {
  VoiceMetadataProbs out;
  for (auto [key, list] : {std::pair{"age", &out.age}, std::pair{"gender", &out.gender},
                           std::pair{"emotion", &out.emotion}, std::pair{"intent", &out.intent}}) {
    const Json* stored = json.find(key);
    if (!stored || !stored->isArray())
      return fail("VoiceMetadataProbs", 1, std::string(key) + " is missing");
    for (const Json& entry : stored->items()) {
      auto parsed = MetadataProbability::fromJson(entry);
      if (!parsed) return fail("VoiceMetadataProbs", 2, std::string(key) + " holds a broken entry");
      list->push_back(std::move(*parsed));
    }
  }
  return out;
}

Json VoiceEntity::toJson() const { return Json::object({{"type", type}, {"value", value}}); }

Result<LocalASRResult> parseASRResponse(std::string_view body) {
  auto json = Json::parse(body);
  if (!json) return fail(json.error());
  if (!json->isObject()) return fail("LocalASRService", 4, "Invalid JSON response from ASR");
  LocalASRResult out;
  out.transcript = json->stringAt("transcript", "");
  if (const Json* metadata = json->objectAt("metadata")) {
    out.metadata = VoiceMetadata{metadata->stringAt("age"), metadata->stringAt("gender"),
                                 metadata->stringAt("emotion"), metadata->stringAt("intent")};
  }
  if (const Json* probs = json->objectAt("metadata_probs")) {
    out.metadataProbs =
        VoiceMetadataProbs{parseProbs(*probs, "age"), parseProbs(*probs, "gender"),
                           parseProbs(*probs, "emotion"), parseProbs(*probs, "intent")};
  }
  for (const Json* entity : json->objectsAt("entities")) {
    const auto type = entity->stringAt("type");
    const auto value = entity->stringAt("value");
    if (type && value) out.entities.push_back({*type, *value});
  }
  return out;
}

}  // namespace kestrin
