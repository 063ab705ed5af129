#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/dispatch/simulation.h"
#include "platform/linux/linux_files.h"
#include "platform/simulated/simulated_files.h"
#include "support/worlds.h"

namespace kestrin {
namespace {

struct SimulatedWorld {
  std::unique_ptr<Simulation> dispatch = Simulation::make();
  SimulatedFiles files{dispatch->clock()};
  std::string folder() { return "/tmp"; }
};
struct RealWorld {
  test::ScratchFolder scratch;
  LinuxFiles files;
  std::string folder() { return scratch.path(); }
};

template <class World>
struct FilesContract : ::testing::Test {
  World world;
  Files& files = world.files;
  std::string at(const std::string& name) { return world.folder() + "/" + name; }
  std::string names(const std::string& folder) {
    std::string out;
    const auto entries = files.list(folder).value();
    for (const auto& info : entries) {
      out += info.path.substr(info.path.rfind('/') + 1) + (info.isDirectory ? "/ " : " ");
    }
    return out;
  }
};
using Worlds = ::testing::Types<SimulatedWorld, RealWorld>;
TYPED_TEST_SUITE(FilesContract, Worlds);

TYPED_TEST(FilesContract, WhatIsWrittenIsRead) {
  const Bytes odd("a\0b\xFF\n", 5);
  ASSERT_TRUE(this->files.writeAtomic(this->at("deep/er/a"), odd));
  ASSERT_TRUE(this->files.append(this->at("deep/er/a"), "more"));
  ASSERT_TRUE(this->files.append(this->at("other/b"), "new"));
  EXPECT_EQ(this->files.read(this->at("deep/er/a")).value(), odd + "more");
  ASSERT_TRUE(this->files.writeAtomic(this->at("deep/er/a"), "short"));
  EXPECT_EQ(this->files.read(this->at("deep/er/a")).value(), "short");
  EXPECT_EQ(this->files.read(this->at("other/b")).value(), "new");
  EXPECT_EQ(this->names(this->world.folder()), "deep/ other/ ");
  const auto info = this->files.info(this->at("deep/er/a"));
  ASSERT_TRUE(info);
  EXPECT_TRUE(info->isRegularFile && !info->isDirectory && info->size == 5);
}

TYPED_TEST(FilesContract, MovingCopyingAndRemoving) {
  ASSERT_TRUE(this->files.createFolders(this->at("a/b")));
  ASSERT_TRUE(this->files.createFolders(this->at("a/b")));
  ASSERT_TRUE(this->files.writeAtomic(this->at("a/b/one"), "1"));
  ASSERT_TRUE(this->files.writeAtomic(this->at("a/two"), "2"));
  ASSERT_TRUE(this->files.rename(this->at("a"), this->at("c")));
  EXPECT_FALSE(this->files.exists(this->at("a/two")));
  ASSERT_TRUE(this->files.rename(this->at("c/two"), this->at("c/b/one")));
  EXPECT_EQ(this->files.read(this->at("c/b/one")).value(), "2");
  ASSERT_TRUE(this->files.copy(this->at("c/b/one"), this->at("new/copy")));
  EXPECT_EQ(this->files.read(this->at("new/copy")).value(), "2");
  EXPECT_EQ(this->files.remove(this->at("c")).error().code, ENOTEMPTY);
  ASSERT_TRUE(this->files.remove(this->at("c/b/one")));
  ASSERT_TRUE(this->files.remove(this->at("c/b")));
  EXPECT_EQ(this->names(this->at("c")), "");
}

TYPED_TEST(FilesContract, FailuresNameTheCauseAndThePath) {
  ASSERT_TRUE(this->files.writeAtomic(this->at("file"), "x"));
  ASSERT_TRUE(this->files.createFolders(this->at("folder")));
  const auto missing = this->files.read(this->at("none"));
  EXPECT_EQ(missing.error(),
            (Error{"Files", ENOENT, this->at("none") + ": No such file or directory"}));
  EXPECT_EQ(this->files.read(this->at("folder")).error().code, EISDIR);
  EXPECT_EQ(this->files.writeAtomic(this->at("folder"), "x").error().code, EISDIR);
  EXPECT_EQ(this->files.writeAtomic(this->at("file/x"), "x").error().code, ENOTDIR);
  EXPECT_EQ(this->files.list(this->at("none")).error().code, ENOENT);
  EXPECT_EQ(this->files.list(this->at("file")).error().code, ENOTDIR);
  EXPECT_EQ(this->files.remove(this->at("none")).error().code, ENOENT);
  EXPECT_EQ(this->files.rename(this->at("none"), this->at("x")).error().code, ENOENT);
  EXPECT_EQ(this->files.rename(this->at("folder"), this->at("file")).error().code, ENOTDIR);
  EXPECT_EQ(this->files.rename(this->at("folder"), this->at("folder/in")).error().code, EINVAL);
  EXPECT_EQ(this->files.copy(this->at("none"), this->at("x")).error().code, ENOENT);
  EXPECT_FALSE(this->files.info(this->at("none")));
  EXPECT_EQ(this->names(this->world.folder()), "file folder/ ");
}

TEST(SimulatedFiles, AFullOrReadOnlyDiskLeavesWhatIsThere) {
  SimulatedWorld world;
  ASSERT_TRUE(world.files.writeAtomic("/tmp/a", "12345"));
  world.files.setCapacity(8);
  EXPECT_EQ(world.files.append("/tmp/a", "6789").error().code, ENOSPC);
  EXPECT_TRUE(world.files.writeAtomic("/tmp/a", "12345678"));
  world.files.makeReadOnly("/tmp");
  EXPECT_EQ(world.files.remove("/tmp/a").error().code, EROFS);
  EXPECT_EQ(world.files.createFolders("/tmp/new").error().code, EROFS);
  EXPECT_EQ(world.files.read("/tmp/a").value(), "12345678");
}

TEST(LinuxFiles, PersonalFilesArePrivateAndLinksStayLinks) {
  RealWorld world;
  const std::string file = world.folder() + "/deep/file";
  ASSERT_TRUE(world.files.writeAtomic(file, "1"));
  const auto mode = [](const std::string& path) {
    struct stat status {};
    ::lstat(path.c_str(), &status);
    return status.st_mode;
  };
  EXPECT_EQ(mode(file) & 0777, 0600u);
  EXPECT_EQ(mode(world.folder() + "/deep") & 0777, 0700u);
  const std::string link = world.folder() + "/link";
  ASSERT_EQ(::symlink(file.c_str(), link.c_str()), 0);
  ASSERT_TRUE(world.files.writeAtomic(link, "2"));
  EXPECT_TRUE(S_ISLNK(mode(link)));
  EXPECT_EQ(world.files.read(file).value(), "2");
}

TEST(LinuxFiles, FoldersFollowTheXdgRules) {
  RealWorld world;
  ::setenv("XDG_CONFIG_HOME", world.folder().c_str(), 1);
  ::setenv("XDG_DATA_HOME", "relative/does/not/count", 1);
  ASSERT_TRUE(world.files.writeAtomic(world.folder() + "/user-dirs.dirs",
                                      "# comment\nXDG_DESKTOP_DIR=\"$HOME/Bureau/\"\n"
                                      "XDG_DOCUMENTS_DIR=\"/srv/docs\"\nXDG_DESKTOP_DIR=\n"));
  EXPECT_EQ(world.files.configFolder(), world.folder());
  EXPECT_EQ(world.files.dataFolder(), world.files.home() + "/.local/share");
  EXPECT_EQ(world.files.desktopFolder(), world.files.home() + "/Bureau");
  EXPECT_EQ(world.files.documentsFolder(), "/srv/docs");
  ::unsetenv("XDG_CONFIG_HOME");
  ::unsetenv("XDG_DATA_HOME");
}

TEST(RandomNumbers, AreOfTheLengthAskedAndRepeatOnlyWithTheSeed) {
  LinuxRandom real;
  SimulatedRandom one(5), same(5), other(6);
  EXPECT_EQ(real.bytes(1000).size(), 1000u);
  EXPECT_NE(real.uuid(), real.uuid());
  EXPECT_EQ(one.uuid(), same.uuid());
  EXPECT_NE(one.uuid(), other.uuid());
}

}  // namespace
}  // namespace kestrin
