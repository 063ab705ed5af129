#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "research/research_records.h"

namespace kestrin {

/// Past sessions under one heading, in the order of the list.
struct ResearchSection {
  std::string title;            ///< "Today", "Yesterday", "This Week", "Older"
  std::vector<size_t> indexes;  ///< into the list
};

/// By age on the calendar of the time zone (empty: the system's); empty sections are left out. A
/// session whose date cannot be read is old.
std::vector<ResearchSection> groupSessionsByDate(const std::vector<ResearchSession>& sessions,
                                                 Date now, std::string_view zone = {});

}  // namespace kestrin
