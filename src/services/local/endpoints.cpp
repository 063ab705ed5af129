#include "services/local/endpoints.h"

#include <cstdlib>

#ifndef KESTRIN_BACKEND_BASE_URL
#define KESTRIN_BACKEND_BASE_URL "http://127.0.0.1:8780"
#endif

namespace kestrin {
namespace {

std::string fromVariable(const char* variable, const char* fallback) {
  const char* value = std::getenv(variable);
  std::string url = value != nullptr && *value != '\0' ? value : fallback;
  while (!url.empty() && url.back() == '/') url.pop_back();
  return url;
}

}  // namespace

Endpoints Endpoints::fromEnvironment() {
  return {fromVariable("KESTRIN_ASR_URL", "http://127.0.0.1:8001"),
          fromVariable("KESTRIN_LLM_URL", "http://127.0.0.1:8082"),
          fromVariable("KESTRIN_AGENT_URL", "http://127.0.0.1:8765"),
          fromVariable("KESTRIN_BACKEND_URL", KESTRIN_BACKEND_BASE_URL)};
}

}  // namespace kestrin
