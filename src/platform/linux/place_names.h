#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/place.h"

namespace kestrin {

/// The city that a time zone is named after and its country ("America/Argentina/Buenos_Aires":
/// "Buenos Aires", "Argentina"); nothing for zones of no country ("Etc/UTC").
std::optional<Place> placeOfTimeZone(const std::string& zone);

/// The country of the zone whose principal city is nearest to a point (degrees), and that city when
/// it is near enough to be the place itself. `zoneTab` is the text of the system's zone.tab.
std::optional<Place> placeNear(double latitude, double longitude, std::string_view zoneTab);

/// "City, Region, Country", as location services describe places.
Place placeOfDescription(std::string_view description);

}  // namespace kestrin
