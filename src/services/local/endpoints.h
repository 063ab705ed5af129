#pragma once

#include <string>

namespace kestrin {

/// Base addresses of the four services, without a trailing slash. Constants of the build; the
/// environment overrides them (KESTRIN_ASR_URL, KESTRIN_LLM_URL, KESTRIN_AGENT_URL,
/// KESTRIN_BACKEND_URL).
struct Endpoints {
  std::string asr;
  std::string llm;
  std::string agent;
  std::string backend;

  static Endpoints fromEnvironment();
};

}  // namespace kestrin
