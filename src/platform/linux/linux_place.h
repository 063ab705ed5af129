#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/files.h"
#include "platform/linux/dbus.h"
#include "platform/place.h"

namespace kestrin {

/// Asks the location service of the system where it runs and allows it, and puts its coordinates
/// into words with the system's own table of cities; otherwise the city of the time zone.
class LinuxPlaceService final : public PlaceService {
 public:
  using Connect = std::function<Result<std::unique_ptr<dbus::Connection>>()>;

  /// `timeZone`: the system's zone, asked at each call.
  LinuxPlaceService(Files& files, Connect connect, std::function<std::string()> timeZone)
      : files_(files), connect_(std::move(connect)), timeZone_(std::move(timeZone)) {}

  Result<Place> current(Duration deadline) override;

 private:
  Result<Place> located(Duration deadline);

  Files& files_;
  const Connect connect_;
  const std::function<std::string()> timeZone_;
};

}  // namespace kestrin
