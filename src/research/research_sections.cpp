#include "research/research_sections.h"

#include <algorithm>

namespace kestrin {

std::vector<ResearchSection> groupSessionsByDate(const std::vector<ResearchSession>& sessions,
                                                 Date now, std::string_view zone) {
  const auto dayOf = [&](Date date) { return dates::format(date, "yyyy-MM-dd", zone); };
  const std::string today = dayOf(now);
  const std::string yesterday = dates::dayBefore(today);
  const Date weekAgo = now - std::chrono::days(7);
  const auto sectionOf = [&](const ResearchSession& session) -> size_t {
    const auto created = dates::parseIso8601(session.createdAt);
    if (!created) return 3;
    const std::string day = dayOf(*created);
    if (day == today) return 0;
    if (day == yesterday) return 1;
    return *created > weekAgo ? 2 : 3;
  };
  std::vector<ResearchSection> sections = {
      {"Today", {}}, {"Yesterday", {}}, {"This Week", {}}, {"Older", {}}};
  for (size_t i = 0; i < sessions.size(); ++i) {
    sections[sectionOf(sessions[i])].indexes.push_back(i);
  }
  std::erase_if(sections, [](const ResearchSection& each) { return each.indexes.empty(); });
  return sections;
}

}  // namespace kestrin
