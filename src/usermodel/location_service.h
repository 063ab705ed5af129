#pragma once

#include <functional>
#include <string>

#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "platform/place.h"
#include "platform/settings.h"

namespace kestrin {

struct FoundLocation {
  std::string location;  ///< "city, region, country"
  std::string city;
  std::string country;
};

/// Fills the user's stored place from where the computer is. Main queue.
class LocationService {
 public:
  static constexpr std::chrono::seconds deadline{5};

  LocationService(Dispatch& dispatch, PlaceService& places, SettingsStore& settings)
      : dispatch_(dispatch), places_(places), settings_(settings) {}

  /// Stores location, city, country and time zone and then calls `done`, once, on the main queue;
  /// without a place nothing is stored. `done` may be empty.
  void update(std::function<void(const Result<FoundLocation>&)> done);

 private:
  Result<FoundLocation> store(const Result<Place>& place);

  Dispatch& dispatch_;
  PlaceService& places_;
  SettingsStore& settings_;
  Lifetime lifetime_;
};

}  // namespace kestrin
