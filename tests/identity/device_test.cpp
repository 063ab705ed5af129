#include <gtest/gtest.h>

#include "identity/device_id_manager.h"
#include "identity/machine_identity.h"
#include "platform/simulated/simulated_world.h"

namespace kestrin {
namespace {

const std::string currentFile = "/home/user/.local/share/com.kestrin.kestrin/device_id.txt";
const std::string legacyFile = "/home/user/.local/share/com.kestrin.nibo/device_id.txt";
const std::string settingsKey = "com.kestrin.nibo.device_id";

struct Computer : SimulatedWorld {
  /// What a newly started process answers.
  std::string deviceId() { return DeviceIdManager(files, settings, random).deviceId(); }
  std::string file(const std::string& path) { return files.read(path).value_or("none"); }
};

TEST(DeviceId, IsMadeOnceAndOutlivesTheLossOfEitherPlace) {
  Computer computer;
  const std::string id = computer.deviceId();
  EXPECT_EQ(id.size(), 23u);
  EXPECT_EQ(id.substr(0, 7), "device_");
  EXPECT_EQ(id.find_first_not_of("0123456789abcdef", 7), id.npos);
  EXPECT_EQ(computer.file(currentFile), id);
  EXPECT_EQ(computer.settings.string(settingsKey), id);

  computer.settings.remove(settingsKey);
  EXPECT_EQ(computer.deviceId(), id);
  EXPECT_FALSE(computer.settings.get(settingsKey)) << "a file that reads writes nothing";
  computer.settings.set(settingsKey, id);
  computer.files.put(currentFile, " \n\t");
  EXPECT_EQ(computer.deviceId(), id);
  EXPECT_EQ(computer.file(currentFile), id);
}

TEST(DeviceId, TheFileWinsAndAnyFormIsAccepted) {
  Computer computer;
  computer.settings.set(settingsKey, "from settings");
  computer.files.put(currentFile, "  mine \n");
  EXPECT_EQ(computer.deviceId(), "mine");
  EXPECT_EQ(computer.settings.string(settingsKey), "from settings");
  computer.files.put(currentFile, "\xff\xfe");
  EXPECT_EQ(computer.deviceId(), "from settings");
}

TEST(DeviceId, ComesOverFromTheLegacyFolderOnlyWhereTheFileIsMissing) {
  Computer computer;
  computer.files.put(legacyFile, "device_old");
  EXPECT_EQ(computer.deviceId(), "device_old");
  EXPECT_EQ(computer.file(legacyFile), "device_old");
  EXPECT_EQ(computer.file(currentFile), "device_old");
  computer.files.put(currentFile, "device_new");
  EXPECT_EQ(computer.deviceId(), "device_new");
}

TEST(DeviceId, ServesTheRunWhereNothingCanBeWritten) {
  Computer computer;
  computer.files.makeReadOnly("/home/user");
  DeviceIdManager manager(computer.files, computer.settings, computer.random);
  const std::string id = manager.deviceId();
  EXPECT_EQ(id.size(), 23u);
  computer.settings.remove(settingsKey);
  EXPECT_EQ(manager.deviceId(), id);
}

TEST(MachineIdentity, SetupOfAnotherMachineDoesNotCount) {
  SimulatedWorld world;
  MachineIdentity here(world.controls, world.settings);
  EXPECT_FALSE(here.isSetupMachineMatch());
  world.settings.set(MachineIdentity::setupMachineKey, "");
  EXPECT_FALSE(here.isSetupMachineMatch());
  world.settings.set(MachineIdentity::setupMachineKey, "0123456789ABCDEF");
  EXPECT_FALSE(here.isSetupMachineMatch());
  world.settings.set(MachineIdentity::setupMachineKey, here.machineId());
  EXPECT_TRUE(here.isSetupMachineMatch());
}

TEST(MachineIdentity, FallsBackToTheHostNameAndKeepsItForTheRun) {
  for (const auto& none : {Result<std::string>(fail("SystemControls", 5, "none")),
                           Result<std::string>(std::string())}) {
    SimulatedWorld world;
    world.controls.machine = none;
    MachineIdentity identity(world.controls, world.settings);
    EXPECT_EQ(identity.machineId(), "unknown-simulated");
    world.settings.set(MachineIdentity::setupMachineKey, "unknown-simulated");
    world.controls.machine = std::string("late");
    EXPECT_TRUE(identity.isSetupMachineMatch());
  }
}

}  // namespace
}  // namespace kestrin
