#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/dispatch/simulation.h"
#include "platform/linux/json_settings.h"
#include "platform/linux/linux_files.h"
#include "platform/simulated/simulated_settings.h"
#include "support/worlds.h"

namespace kestrin {
namespace {

using test::Log;

struct RealWorld {
  test::ScratchFolder scratch;
  std::unique_ptr<Simulation> dispatch = Simulation::make();
  LinuxFiles files;
  Log warnings;
  std::string path = scratch.file("kestrin/settings.json");

  std::unique_ptr<JsonSettings> open() {
    return std::make_unique<JsonSettings>(
        dispatch->clock(), path, [this](const std::string& line) { warnings.add(line + "\n"); });
  }
  std::unique_ptr<JsonSettings> store_ = open();
  SettingsStore& store = *store_;
};
struct SimulatedWorld {
  SimulatedSettings store_;
  SettingsStore& store = store_;
};

template <class World>
struct SettingsContract : ::testing::Test {
  World world;
};
using Worlds = ::testing::Types<SimulatedWorld, RealWorld>;
TYPED_TEST_SUITE(SettingsContract, Worlds);

TYPED_TEST(SettingsContract, ValuesKeepTheirTypesAndObserversHearOnlyOfChanges) {
  SettingsStore& store = this->world.store;
  Log log;
  auto subscription = store.observe([&](const std::string& key) { log.add(key + " "); });
  store.set("b", true);
  store.set("a", "text");
  store.set("a", "text");
  store.set("n", 0.5);
  store.set("list", Json::arrayOf(std::vector<std::string>{"x", "y"}));
  store.remove("n");
  store.remove("never");
  EXPECT_EQ(log.text(), "b a n list n ");
  EXPECT_EQ(store.keys(), (std::vector<std::string>{"a", "b", "list"}));
  EXPECT_EQ(store.string("a"), "text");
  EXPECT_TRUE(store.boolean("b"));
  EXPECT_EQ(store.number("n", 7), 7);
  EXPECT_EQ(store.get("list")->items().size(), 2u);
  subscription.reset();
  store.set("a", "other");
  EXPECT_EQ(log.text(), "b a n list n ");
}

TYPED_TEST(SettingsContract, AnObserverMayReadWriteAndUnsubscribe) {
  SettingsStore& store = this->world.store;
  SubscriptionHandle subscription;
  subscription = store.observe([&](const std::string& key) {
    subscription.reset();
    store.set("seen", key + store.string(key));
  });
  store.set("a", "1");
  store.set("a", "2");
  EXPECT_EQ(store.string("seen"), "a1");
}

TEST(SimulatedSettings, AFailedSaveKeepsTheValueForThisRun) {
  FaultPlan plan;
  SimulatedSettings store(&plan);
  plan.arm(2);
  store.set("a", 1);
  store.set("b", 2);
  EXPECT_EQ(store.number("b", 0), 2);
  EXPECT_EQ(store.saved().count("b"), 0u);
  EXPECT_FALSE(store.flush());
}

TEST(JsonSettings, AreThereInTheNextRunPrivateAndReadable) {
  RealWorld world;
  world.store.set("pref_name", "Zoë");
  ASSERT_TRUE(world.store.flush());
  struct stat status {};
  ASSERT_EQ(::stat(world.path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_EQ(world.files.read(world.path).value(), "{\n  \"pref_name\": \"Zoë\"\n}\n");
  EXPECT_EQ(world.open()->string("pref_name"), "Zoë");
  EXPECT_EQ(world.warnings.text(), "");
}

TEST(JsonSettings, TwoStoresSeeEachOtherAndLoseNothing) {
  RealWorld world;
  const auto other = world.open();
  Log heard;
  const auto subscription = other->observe([&](const std::string& key) { heard.add(key + " "); });
  const auto fill = [](SettingsStore& store, const std::string& prefix) {
    return std::thread([&store, prefix] {
      for (int i = 0; i < 50; ++i) store.set(prefix + std::to_string(i), i);
    });
  };
  std::thread a = fill(world.store, "a"), b = fill(*other, "b"), c = fill(world.store, "c");
  a.join();
  b.join();
  c.join();
  EXPECT_TRUE(world.store.flush());
  EXPECT_TRUE(other->flush());
  EXPECT_EQ(world.open()->keys().size(), 150u);
  EXPECT_TRUE(test::eventually(
      [&] { return world.store.keys().size() == 150 && other->keys().size() == 150; }));
  EXPECT_TRUE(heard.has("a49 "));
  other->remove("a0");
  EXPECT_TRUE(test::eventually([&] { return !world.store.get("a0"); }));
}

TEST(JsonSettings, ABrokenFileIsKeptAsideWithOneWarning) {
  for (const char* broken : {"{\"a\": 1,", "[1, 2]", "\"text\"", "{} trailing"}) {
    RealWorld world;
    ASSERT_TRUE(world.files.writeAtomic(world.scratch.file("other/settings.json"), broken));
    world.path = world.scratch.file("other/settings.json");
    const auto store = world.open();
    EXPECT_TRUE(store->keys().empty());
    store->set("b", 2);
    ASSERT_TRUE(store->flush());
    const std::string aside = world.path + ".broken-20260302-090000";
    EXPECT_EQ(world.files.read(aside).value_or("none"), broken);
    EXPECT_EQ(world.warnings.text(),
              "The settings file was not valid JSON; it is kept as " + aside + "\n");
    EXPECT_EQ(world.open()->keys(), std::vector<std::string>{"b"});
  }
}

TEST(JsonSettings, AnEditGoneWrongChangesNothingAndTheNextSetMendsIt) {
  RealWorld world;
  world.store.set("a", 1);
  ASSERT_TRUE(world.store.flush());
  ASSERT_TRUE(world.files.writeAtomic(world.path, "{\"a\": 2, oops"));
  EXPECT_TRUE(test::eventually([&] { return world.warnings.has("not valid JSON"); }));
  EXPECT_EQ(world.store.number("a", 0), 1);
  world.store.set("b", 3);
  ASSERT_TRUE(world.store.flush());
  EXPECT_EQ(world.open()->keys(), (std::vector<std::string>{"a", "b"}));
  ASSERT_TRUE(world.files.exists(world.path + ".broken-20260302-090000"));
  // A good edit counts, and so does the removal of the file.
  ASSERT_TRUE(world.files.writeAtomic(world.path, "{\"a\": 9}"));
  EXPECT_TRUE(test::eventually([&] { return world.store.number("a", 0) == 9; }));
  EXPECT_FALSE(world.store.get("b"));
  ASSERT_TRUE(world.files.remove(world.path));
  EXPECT_TRUE(test::eventually([&] { return world.store.keys().empty(); }));
}

TEST(JsonSettings, WhatWasSetIsOnDiskSoonAndAtTheEnd) {
  RealWorld world;
  world.store.set("a", 1);
  EXPECT_TRUE(test::eventually([&] { return world.files.exists(world.path); }))
      << "nobody asked for it to be written";
  for (int i = 0; i < 200; ++i) world.store.set("key" + std::to_string(i % 7), i);
  world.store.remove("a");
  world.store_.reset();
  EXPECT_EQ(world.open()->keys().size(), 7u);
  EXPECT_EQ(world.open()->number("key3", 0), 199);
}

TEST(JsonSettings, WhatCannotBeSavedHoldsForThisRunAndIsSavedLater) {
  RealWorld world;
  world.store.set("a", 1);
  ASSERT_TRUE(world.store.flush());
  // A folder in place of the file: even root can neither read nor replace it.
  ASSERT_TRUE(world.files.remove(world.path));
  ASSERT_TRUE(world.files.createFolders(world.path + "/in"));
  world.store.set("b", 2);
  world.store.set("b", 3);
  EXPECT_EQ(world.store.number("b", 0), 3);
  EXPECT_FALSE(world.store.flush());
  EXPECT_TRUE(world.warnings.has("could not be read"));
  ASSERT_TRUE(world.files.remove(world.path + "/in"));
  ASSERT_TRUE(world.files.remove(world.path));
  world.store.set("c", 4);
  EXPECT_TRUE(world.store.flush());
  EXPECT_EQ(world.open()->number("b", 0), 3);
  EXPECT_EQ(world.open()->number("c", 0), 4);
}

}  // namespace
}  // namespace kestrin
