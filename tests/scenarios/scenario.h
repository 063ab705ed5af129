#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace kestrin::test {

/// A whole dictation told in a few lines: a desktop, what the services answer, what happens when,
/// and what must be true at the end. README.md has the words.
struct Scenario {
  using Line = std::vector<std::string>;
  struct Event {
    std::chrono::milliseconds at{0};  ///< after the application is ready
    Line what;
  };
  /// What the services say to one recording.
  struct Script {
    std::vector<Line> asr;
    std::vector<Line> agent;
  };

  static Scenario load(const std::string& path);

  std::string name;
  std::vector<Line> applications;
  std::vector<Script> scripts;
  std::vector<Event> events;
  std::vector<Line> expectations;
};

struct ScenarioOutcome {
  std::vector<std::string> problems;
  /// Sites of the fallible calls of the ports, in order; counted from the first event.
  std::vector<std::string> sites;
  std::string log;  ///< of the application, for a failure's report
};

/// Plays the scenario in virtual time. `fault` 0: nothing fails, and the expectations are checked.
/// Otherwise that fallible call fails, and what holds whatever happens is checked: no text is lost,
/// nothing is stuck, and the next dictation works.
ScenarioOutcome play(const Scenario& scenario, uint64_t seed, int fault = 0);

}  // namespace kestrin::test
