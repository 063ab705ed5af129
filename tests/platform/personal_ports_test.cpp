#include <gtest/gtest.h>

#include "platform/linux/linux_files.h"
#include "platform/linux/linux_place.h"
#include "platform/linux/place_names.h"
#include "platform/linux/xdg_login_item.h"
#include "platform/private_bus.h"
#include "platform/simulated/simulated_files.h"
#include "platform/simulated/simulated_world.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct XdgWorld : SimulatedWorld {
  XdgLoginItem item{files, "/opt/my \"$apps\"/100%/kestrin-desktop"};
  std::string path = files.configFolder() + "/autostart/kestrin.desktop";
  std::string entry() { return files.read(path).value_or(""); }
};
struct FlagWorld : SimulatedWorld {
  SimulatedLoginItem& item = loginItem;
};

template <class World>
struct LoginItemContract : ::testing::Test {
  World world;
};
using LoginWorlds = ::testing::Types<FlagWorld, XdgWorld>;
TYPED_TEST_SUITE(LoginItemContract, LoginWorlds);

TYPED_TEST(LoginItemContract, IsWhatItWasLastSetToAndAFailureChangesNothing) {
  LoginItem& item = this->world.item;
  EXPECT_FALSE(item.isEnabled());
  EXPECT_TRUE(item.setEnabled(false));
  EXPECT_TRUE(item.setEnabled(true));
  EXPECT_TRUE(item.setEnabled(true));
  EXPECT_TRUE(item.isEnabled());
  EXPECT_TRUE(item.setEnabled(false));
  EXPECT_FALSE(item.isEnabled());
  this->world.faults.arm(1);
  EXPECT_FALSE(item.setEnabled(true));
  EXPECT_FALSE(item.isEnabled());
}

TEST(XdgLoginItem, QuotesTheProgramAndHeedsTheDesktopsOwnSwitch) {
  XdgWorld world;
  ASSERT_TRUE(world.item.setEnabled(true));
  EXPECT_NE(world.entry().find(R"(
Exec="/opt/my \\"\\$apps\\"/100%%/kestrin-desktop" --tray
)"),
            std::string::npos)
      << world.entry();
  for (const char* off : {"Hidden=true\n", "X-GNOME-Autostart-enabled = false\n"}) {
    ASSERT_TRUE(world.files.writeAtomic(world.path, "[Desktop Entry]\n" + std::string(off)));
    EXPECT_FALSE(world.item.isEnabled()) << off;
  }
}

/// The location service of a system: it finds its place half a call after it was started.
struct LocationPeer {
  static constexpr const char* client = "org.freedesktop.GeoClue2.Client";

  LocationPeer(PrivateBus& bus, double latitude, double longitude, std::string description)
      : connection(bus.connect()) {
    EXPECT_TRUE(connection->requestName("org.freedesktop.GeoClue2"));
    const auto publish = [&](const std::string& path, auto declare) {
      objects.push_back(
          connection->exportObject("/org/freedesktop/GeoClue2/" + path, declare).value());
    };
    publish("Manager", [](sdbus::IObject& o) {
      o.registerMethod("CreateClient")
          .onInterface("org.freedesktop.GeoClue2.Manager")
          .implementedAs([] { return sdbus::ObjectPath("/org/freedesktop/GeoClue2/Client/1"); });
    });
    publish("Client/1", [this](sdbus::IObject& o) {
      o.registerProperty("DesktopId")
          .onInterface(client)
          .withGetter([this] { return desktopId; })
          .withSetter([this](const std::string& id) { desktopId = id; });
      o.registerProperty("RequestedAccuracyLevel")
          .onInterface(client)
          .withGetter([] { return uint32_t{0}; })
          .withSetter([](const uint32_t&) {});
      o.registerSignal("LocationUpdated")
          .onInterface(client)
          .withParameters<sdbus::ObjectPath, sdbus::ObjectPath>();
      o.registerMethod("Start").onInterface(client).implementedAs([this] {
        if (!allowed) throw sdbus::Error("org.freedesktop.DBus.Error.AccessDenied", "not allowed");
        if (silent) return;
        connection->emit("/org/freedesktop/GeoClue2/Client/1", client, "LocationUpdated",
                         sdbus::ObjectPath("/"),
                         sdbus::ObjectPath("/org/freedesktop/GeoClue2/Client/1/Location/0"));
      });
    });
    publish("Client/1/Location/0", [=](sdbus::IObject& o) {
      const char* location = "org.freedesktop.GeoClue2.Location";
      o.registerProperty("Latitude").onInterface(location).withGetter([=] { return latitude; });
      o.registerProperty("Longitude").onInterface(location).withGetter([=] { return longitude; });
      o.registerProperty("Description").onInterface(location).withGetter([=] {
        return description;
      });
    });
  }
  std::unique_ptr<dbus::Connection> connection;
  std::vector<SubscriptionHandle> objects;
  std::string desktopId;
  bool allowed = true, silent = false;
};

struct PlaceOnABus {
  PrivateBus bus;
  LinuxFiles files;
  std::string zone = "America/Argentina/Buenos_Aires";
  LinuxPlaceService service{files, [this] { return dbus::Connection::open(bus.address()); },
                            [this] { return zone; }};
};

TEST(LinuxPlace, TheLocationServiceIsAskedUnderOurNameAndItsPlacePutIntoWords) {
  PlaceOnABus world;
  LocationPeer peer(world.bus, 48.80, 2.30, "");
  EXPECT_EQ(world.service.current(30s).value(),
            (Place{"Paris", "", "France", "America/Argentina/Buenos_Aires"}));
  EXPECT_EQ(peer.desktopId, "com.kestrin.Kestrin");
}

TEST(LinuxPlace, ADescriptionSaysMoreThanTheNearestCity) {
  PlaceOnABus world;
  LocationPeer peer(world.bus, 45.76, 4.83, "Lyon, Rhône, France");
  const auto place = world.service.current(30s).value();
  EXPECT_EQ(place.locality + "/" + place.administrativeArea + "/" + place.country,
            "Lyon/Rhône/France");
}

TEST(LinuxPlace, WithoutALocationTheZonesCityServes) {
  PlaceOnABus world;
  const Place ofZone{"Buenos Aires", "", "Argentina", "America/Argentina/Buenos_Aires"};
  EXPECT_EQ(world.service.current(30s).value(), ofZone) << "no service";
  LocationPeer peer(world.bus, 48.80, 2.30, "");
  peer.allowed = false;
  EXPECT_EQ(world.service.current(30s).value(), ofZone) << "forbidden";
  peer.allowed = true;
  peer.silent = true;
  EXPECT_EQ(world.service.current(100ms).value(), ofZone) << "silent";
  world.zone = "Etc/UTC";
  EXPECT_EQ(world.service.current(100ms).error().domain, "PlaceService");
  SimulatedWorld simulated;
  simulated.place.place.reset();
  EXPECT_EQ(simulated.place.current(Duration(0)).error().domain, "PlaceService");
}

TEST(PlaceNames, ATableThatIsTornGivesWhatItHas) {
  const std::string table = "# codes\nGB\t+513030-0000731\tEurope/London\nFR\t+4852\nbroken\n";
  const auto near = placeNear(51.4, 0.1, table);
  ASSERT_TRUE(near);
  EXPECT_EQ(near->locality + "/" + near->country, "London/United Kingdom");
  EXPECT_EQ(placeNear(55.9, -3.2, table)->locality, "") << "far from the zone's city";
  EXPECT_FALSE(placeNear(0, 0, ""));
  EXPECT_FALSE(placeOfTimeZone("nonsense/zone"));
  EXPECT_EQ(placeOfDescription(" , Ghent ,").locality, "Ghent");
}

}  // namespace
}  // namespace kestrin
