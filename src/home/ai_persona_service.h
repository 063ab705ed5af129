#pragma once

#include <string>
#include <vector>

#include "home/calendar_event.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"

namespace kestrin {

/// Who speaks.
struct AIPersona {
  std::string name = "Kestrin";
  std::string signOff = "Is there anything else I can help with?";
  std::string personality = "warm, efficient, anticipatory";
  std::string voiceStyle = "af_bella";
};

/// The user's day in one short paragraph that is meant to be read aloud. Reads the clock and chance
/// and nothing else. Thread-safe.
class AIPersonaService {
 public:
  AIPersonaService(Clock& clock, Random& random) : clock_(clock), random_(random) {}

  const AIPersona& currentPersona() const { return persona_; }
  /// `hour`: 0 to 23.
  std::string greeting(const std::string& userName, int hour);
  std::string generateDailyBriefing(const std::vector<CalendarEvent>& events,
                                    const std::string& userName, int unreadEmailCount,
                                    const std::vector<std::string>& topEmailSubjects);
  std::string generateLatestBriefing(const std::vector<CalendarEvent>& events,
                                     const std::string& userName, int unreadEmailCount,
                                     const std::vector<std::string>& topEmailSubjects,
                                     const std::vector<std::string>& newsHeadlines,
                                     const std::string& weatherSummary);

 private:
  std::string greetingNow(const std::string& userName);

  Clock& clock_;
  Random& random_;
  const AIPersona persona_;
};

}  // namespace kestrin
