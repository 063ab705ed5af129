#include "usermodel/location_service.h"

#include "platform/dates/dates.h"
#include "platform/dispatch/background.h"
#include "platform/text/text.h"
#include "usermodel/user_preferences.h"

namespace kestrin {

void LocationService::update(std::function<void(const Result<FoundLocation>&)> done) {
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_,
      [&places = places_] { return places.current(deadline); },
      [this, done = std::move(done)](const Result<Place>& place) {
        const auto stored = store(place);
        if (done) done(stored);
      });
}

Result<FoundLocation> LocationService::store(const Result<Place>& place) {
  if (!place) return fail(place.error());
  FoundLocation found;
  found.city = place->locality.empty() ? place->administrativeArea : place->locality;
  found.country = place->country;
  const std::string region =
      place->administrativeArea == found.city ? "" : place->administrativeArea;
  std::vector<std::string> parts;
  for (const std::string& part : {found.city, region, found.country}) {
    if (!part.empty()) parts.push_back(part);
  }
  found.location = text::join(parts, ", ");
  settings_.set(UserPreferences::userLocationKey, found.location);
  settings_.set(UserPreferences::userCityKey, found.city);
  settings_.set(UserPreferences::userCountryKey, found.country);
  settings_.set(UserPreferences::userTimezoneKey,
                place->timeZone.empty() ? dates::systemTimeZone() : place->timeZone);
  return found;
}

}  // namespace kestrin
