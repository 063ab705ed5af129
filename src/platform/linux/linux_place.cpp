#include "platform/linux/linux_place.h"

#include <mutex>

#include "platform/linux/application_id.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/place_names.h"

namespace kestrin {
namespace {

constexpr const char* service = "org.freedesktop.GeoClue2";
constexpr const char* clientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
/// "City", the coarsest that serves.
constexpr uint32_t cityAccuracy = 4;
constexpr const char* cityTable = "/usr/share/zoneinfo/zone.tab";

/// The path of the location that the service tells next.
struct Told {
  std::mutex mutex;
  std::string path;
  WakeEvent arrived;
};

}  // namespace

Result<Place> LinuxPlaceService::current(Duration deadline) {
  const std::string zone = timeZone_();
  if (auto place = located(deadline)) {
    place->timeZone = zone;
    return place;
  }
  if (auto place = placeOfTimeZone(zone)) return *place;
  return fail("PlaceService", 1, "Neither the location service nor the time zone tells a place");
}

Result<Place> LinuxPlaceService::located(Duration deadline) {
  const Deadline end(deadline);
  auto bus = connect_();
  if (!bus) return fail(bus.error());
  const auto client = (*bus)->call<sdbus::ObjectPath>(
      {service, "/org/freedesktop/GeoClue2/Manager", "org.freedesktop.GeoClue2.Manager"},
      "CreateClient", end.left());
  if (!client) return fail(client.error());
  const auto set = [&](const char* name, const sdbus::Variant& value) {
    return (*bus)->call({service, *client, properties}, "Set", end.left(),
                        std::string(clientInterface), std::string(name), value);
  };
  if (auto named = set("DesktopId", sdbus::Variant(std::string(desktopApplicationId))); !named) {
    return fail(named.error());
  }
  if (auto coarse = set("RequestedAccuracyLevel", sdbus::Variant(cityAccuracy)); !coarse) {
    return fail(coarse.error());
  }
  const auto told = std::make_shared<Told>();
  const auto updates =
      (*bus)->subscribe("type='signal',interface='" + std::string(clientInterface) +
                            "',member='LocationUpdated',path='" + std::string(*client) + "'",
                        [told](sdbus::Message& message) {
                          using Paths = std::tuple<sdbus::ObjectPath, sdbus::ObjectPath>;
                          const auto paths = dbus::Connection::read<Paths>(message);
                          if (!paths) return;
                          const std::lock_guard lock(told->mutex);
                          told->path = std::get<1>(*paths);
                          told->arrived.signal();
                        });
  if (!updates) return fail(updates.error());
  if (auto started = (*bus)->call({service, *client, clientInterface}, "Start", end.left());
      !started) {
    return fail(started.error());
  }
  waitReadable({told->arrived.get()}, end.left());
  std::string path;
  {
    const std::lock_guard lock(told->mutex);
    path = told->path;
  }
  if (path.empty()) return fail("PlaceService", 2, "The location service found no place in time");

  const dbus::Target location{service, path, "org.freedesktop.GeoClue2.Location"};
  const auto grace = std::chrono::seconds(1);
  const auto latitude = (*bus)->property<double>(location, "Latitude", grace);
  const auto longitude = (*bus)->property<double>(location, "Longitude", grace);
  if (!latitude || !longitude) return fail("PlaceService", 3, "The location has no coordinates");
  Place place = placeOfDescription(
      (*bus)->property<std::string>(location, "Description", grace).value_or(""));
  if (place.locality.empty() || place.country.empty()) {
    const auto near = placeNear(*latitude, *longitude, files_.read(cityTable).value_or(""));
    if (!near) return fail("PlaceService", 4, "No table of cities");
    if (place.locality.empty()) place.locality = near->locality;
    place.country = near->country;
  }
  if (place.locality.empty() && place.administrativeArea.empty()) {
    return fail("PlaceService", 5, "No city near the location is known");
  }
  return place;
}

}  // namespace kestrin
