#include "platform/linux/control_bus.h"

#include <gtest/gtest.h>
#include <mutex>
#include <vector>

#include "platform/private_bus.h"
#include "platform/simulated/simulated_control_bus.h"

namespace kestrin {
namespace {

void runningApplicationObeysAndAnswers(ControlBus& server, ControlBus& client) {
  EXPECT_EQ(client.send(ControlCommand::press).error().code, controlNotRunning);
  EXPECT_EQ(client.status().error().description, "Kestrin is not running");
  std::mutex mutex;
  std::vector<ControlCommand> obeyed;
  std::string called;
  ASSERT_TRUE(server.serve({[&](ControlCommand command) {
                              const std::lock_guard lock(mutex);
                              obeyed.push_back(command);
                            },
                            [] { return std::string("{\"ready\":true}"); },
                            [&](const std::string& what) {
                              const std::lock_guard lock(mutex);
                              called = what;
                            },
                            [] { return std::string("[{}]"); }}));
  const std::vector<ControlCommand> all = {ControlCommand::press,  ControlCommand::release,
                                           ControlCommand::toggle, ControlCommand::cancel,
                                           ControlCommand::show,   ControlCommand::quit,
                                           ControlCommand::retry};
  for (const auto command : all) EXPECT_TRUE(client.send(command));
  EXPECT_EQ(client.status().value(), "{\"ready\":true}");
  EXPECT_EQ(client.log().value(), "[{}]");
  EXPECT_TRUE(client.call("Ada Ünal"));
  server.stop();
  EXPECT_EQ(called, "Ada Ünal");
  EXPECT_EQ(obeyed, all);
  EXPECT_EQ(client.send(ControlCommand::press).error().code, controlNotRunning);
  EXPECT_TRUE(server.serve({[](ControlCommand) {}, [] { return std::string(); }, {}}));
  EXPECT_EQ(client.status().value(), "");
}

TEST(ControlBus, TheRunningApplicationObeysAndAnswers) {
  PrivateBus bus;
  LinuxControlBus server(bus.address()), client(bus.address());
  runningApplicationObeysAndAnswers(server, client);
  SimulatedControlBus simulated;
  runningApplicationObeysAndAnswers(simulated, simulated);
}

TEST(ControlBus, OnlyOneApplicationRunsAndALostBusIsSaid) {
  PrivateBus bus;
  LinuxControlBus first(bus.address()), second(bus.address());
  const ControlBus::Handlers quiet{[](ControlCommand) {}, [] { return std::string("first"); }, {}};
  ASSERT_TRUE(first.serve(quiet));
  EXPECT_EQ(second.serve(quiet).error().code, controlAlreadyRunning);
  EXPECT_EQ(second.status().value(), "first");
  bus.stop();
  EXPECT_EQ(second.status().error().code, controlNoBus);
  EXPECT_EQ(second.serve(quiet).error().code, controlNoBus);
}

}  // namespace
}  // namespace kestrin
