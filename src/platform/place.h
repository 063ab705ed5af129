#pragma once

#include <string>

#include "platform/dispatch/dispatch.h"
#include "platform/result.h"

namespace kestrin {

/// A place in words; what is not known is empty.
struct Place {
  std::string locality;            ///< "Lyon"
  std::string administrativeArea;  ///< "Rhône"
  std::string country;             ///< "France"
  std::string timeZone;            ///< "Europe/Paris"

  bool operator==(const Place&) const = default;
};

/// Where the computer is. Thread-safe. Errors: domain "PlaceService".
class PlaceService {
 public:
  virtual ~PlaceService() = default;
  /// Blocks, at most about `deadline`: not on the main queue. Fails when not even the country is
  /// known.
  virtual Result<Place> current(Duration deadline) = 0;
};

}  // namespace kestrin
