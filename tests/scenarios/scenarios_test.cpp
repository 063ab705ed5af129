#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

#include "scenarios/scenario.h"

namespace kestrin::test {
namespace {

std::vector<std::string> scenarioFiles() {
  std::vector<std::string> out;
  for (const auto& entry :
       std::filesystem::directory_iterator(KESTRIN_SOURCE_DIR "/tests/scenarios")) {
    if (entry.path().extension() == ".scenario") out.push_back(entry.path());
  }
  std::sort(out.begin(), out.end());
  return out;
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KESTRIN_SLOW_BUILD
#endif
#endif
#ifdef KESTRIN_SLOW_BUILD
constexpr uint64_t seeds = 25;
#else
constexpr uint64_t seeds = 200;
#endif

class Scenarios : public testing::TestWithParam<std::string> {};

std::string report(const ScenarioOutcome& outcome, uint64_t seed, const std::string& fault) {
  std::string out = "KESTRIN_SEED=" + std::to_string(seed) + fault + "\n";
  for (const std::string& problem : outcome.problems) out += "- " + problem + "\n";
  return out + outcome.log;
}

TEST_P(Scenarios, EndAsToldUnderEverySeed) {
  const Scenario scenario = Scenario::load(GetParam());
  const char* chosen = std::getenv("KESTRIN_SEED");
  const uint64_t first = chosen ? std::strtoull(chosen, nullptr, 10) : 1;
  for (uint64_t seed = first; seed < first + (chosen ? 1 : seeds); ++seed) {
    const ScenarioOutcome outcome = play(scenario, seed);
    ASSERT_TRUE(outcome.problems.empty()) << report(outcome, seed, "");
  }
}

/// Every fallible call of every port fails once.
TEST_P(Scenarios, LoseNothingWhenAnyCallFails) {
  const Scenario scenario = Scenario::load(GetParam());
  const ScenarioOutcome healthy = play(scenario, 1);
  ASSERT_GT(healthy.sites.size(), 10u);
  for (int fault = 1; fault <= static_cast<int>(healthy.sites.size()); ++fault) {
    const ScenarioOutcome outcome = play(scenario, 1, fault);
    EXPECT_TRUE(outcome.problems.empty())
        << report(outcome, 1,
                  ", failing call " + std::to_string(fault) + " (" +
                      healthy.sites[static_cast<size_t>(fault - 1)] + ")");
  }
}

INSTANTIATE_TEST_SUITE_P(Told, Scenarios, testing::ValuesIn(scenarioFiles()),
                         [](const testing::TestParamInfo<std::string>& info) {
                           std::string name = std::filesystem::path(info.param).stem();
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace
}  // namespace kestrin::test
