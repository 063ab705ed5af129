#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "services/local/local_asr_service.h"

/// Whatever the recogniser answers gives an error with words or a result that can be sent on.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace kestrin;
  const auto result = parseASRResponse({reinterpret_cast<const char*>(data), size});
  if (!result) return result.error().description.empty() ? (abort(), 0) : 0;
  if (result->metadataProbs) {
    const Json sent = result->metadataProbs->toJson();
    const auto again = Json::parse(sent.dump());
    if (!again) abort();
    const auto stored = VoiceMetadataProbs::fromJson(*again);
    if (!stored || stored->age.size() != result->metadataProbs->age.size()) abort();
  }
  for (const VoiceEntity& entity : result->entities) {
    if (!Json::parse(entity.toJson().dump())) abort();
  }
  return 0;
}
