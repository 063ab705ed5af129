#include "platform/linux/atspi_bus.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>

#include "platform/private_bus.h"

namespace kestrin::atspi {
namespace {

TEST(AtspiBus, ComesBackWhenItsBusDoes) {
  auto first = std::make_unique<PrivateBus>();
  setenv("AT_SPI_BUS_ADDRESS", first->address().c_str(), 1);
  AtspiBus bus;
  int connects = 0;
  bus.onConnect([&](dbus::Connection&) { ++connects; });
  EXPECT_TRUE(bus.connection());
  EXPECT_TRUE(bus.connection());
  EXPECT_EQ(connects, 1);

  auto watched = (*bus.connection());
  first->stop();
  while (!watched->isLost()) std::this_thread::yield();
  unsetenv("DISPLAY");
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  const auto missing = bus.connection();
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().domain, "Accessibility");

  PrivateBus second;
  setenv("AT_SPI_BUS_ADDRESS", second.address().c_str(), 1);
  EXPECT_TRUE(bus.connection());
  EXPECT_EQ(connects, 2);
  EXPECT_FALSE(bus.applications(1, Budget(callLimit))) << "no registry there";
  unsetenv("AT_SPI_BUS_ADDRESS");
}

}  // namespace
}  // namespace kestrin::atspi
