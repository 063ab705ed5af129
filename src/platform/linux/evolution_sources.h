#pragma once

#include <map>
#include <string>

namespace kestrin {

/// A calendar of Evolution and its relatives, as its source describes it.
struct EvolutionCalendar {
  std::string name;   ///< in the user's language; may be empty
  std::string color;  ///< "#3584e4", or empty
  bool shown = true;  ///< ticked, and neither it nor an account that it belongs to is switched off
};

/// The calendars among the sources, by their ids. `keyFiles`: each source's id and its key file. An
/// account that is not among them counts as switched on; what is no key file is left out.
std::map<std::string, EvolutionCalendar> evolutionCalendars(
    const std::map<std::string, std::string>& keyFiles);

}  // namespace kestrin
