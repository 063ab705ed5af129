#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/dispatch/simulation.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/linux_standard_streams.h"
#include "platform/simulated/simulated_files.h"
#include "platform/simulated/simulated_standard_streams.h"
#include "support/worlds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct SimulatedWorld {
  std::unique_ptr<Simulation> dispatch = Simulation::make();
  SimulatedFiles files{dispatch->clock()};
  SimulatedStandardStreams streams{files};
  std::string folder() { return "/tmp"; }
  void print(StandardStream stream, std::string_view bytes) { streams.print(stream, bytes); }
  std::string inherited(StandardStream stream) { return streams.inherited(stream); }
};

/// Two files stand in for the terminal, so that the test's own output stays out of it.
struct RealWorld {
  test::ScratchFolder scratch;
  LinuxFiles files;
  std::array<Descriptor, 2> numbers{open("terminal0"), open("terminal1")};
  LinuxStandardStreams streams{numbers[0].get(), numbers[1].get()};

  static size_t indexOf(StandardStream stream) { return stream == StandardStream::output ? 0 : 1; }
  Descriptor open(const std::string& name) {
    return Descriptor(::open(scratch.file(name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  }
  std::string folder() { return scratch.path(); }
  void print(StandardStream stream, std::string_view bytes) {
    const int fd = numbers[indexOf(stream)].get();
    ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  std::string inherited(StandardStream stream) {
    return files.read(scratch.file("terminal" + std::to_string(indexOf(stream)))).value();
  }
};

template <class World>
struct StandardStreamsContract : ::testing::Test {
  World world;
  StandardStreams& streams = world.streams;
  std::array<test::Log, 2> captured;

  Status capture() {
    return streams.beginCapture([this](StandardStream stream, std::string_view bytes) {
      captured[stream == StandardStream::output ? 0 : 1].add(std::string(bytes));
    });
  }
};
using Worlds = ::testing::Types<SimulatedWorld, RealWorld>;
TYPED_TEST_SUITE(StandardStreamsContract, Worlds);

constexpr auto output = StandardStream::output;
constexpr auto error = StandardStream::error;

TYPED_TEST(StandardStreamsContract, WhatIsPrintedGoesToTheCaptureAloneAndBackOnlyWhenWritten) {
  auto& world = this->world;
  world.print(output, "before\n");
  ASSERT_TRUE(this->capture());
  EXPECT_EQ(this->capture().error().code, EALREADY);
  const std::string longLine(200'000, 'x');
  world.print(output, "one\ntwo");
  world.print(error, "\xC3");
  world.print(output, longLine);
  world.print(error, "\xA9\n");
  ASSERT_TRUE(this->streams.writeOriginal(output, "passed on\n"));
  this->streams.endCapture();
  this->streams.endCapture();
  EXPECT_EQ(this->captured[0].text(), "one\ntwo" + longLine);
  EXPECT_EQ(this->captured[1].text(), "\xC3\xA9\n");
  world.print(output, "after\n");
  EXPECT_EQ(world.inherited(output), "before\npassed on\nafter\n");
  EXPECT_EQ(world.inherited(error), "");
}

TYPED_TEST(StandardStreamsContract, ARedirectionTakesBothStreamsAndAppends) {
  auto& world = this->world;
  const std::string file = world.folder() + "/day.log";
  ASSERT_TRUE(world.files.append(file, "earlier\n"));
  ASSERT_TRUE(this->capture());
  ASSERT_TRUE(this->streams.redirectOriginals(file));
  world.print(output, "captured\n");
  ASSERT_TRUE(this->streams.writeOriginal(output, "out\n"));
  ASSERT_TRUE(this->streams.writeOriginal(error, "err\n"));
  this->streams.endCapture();
  world.print(output, "straight\n");
  EXPECT_EQ(world.files.read(file).value(), "earlier\nout\nerr\nstraight\n");
  EXPECT_EQ(world.inherited(output) + world.inherited(error), "");
}

TYPED_TEST(StandardStreamsContract, ARedirectionThatFailsLeavesTheStreams) {
  auto& world = this->world;
  const auto refused = this->streams.redirectOriginals(world.folder() + "/none/day.log");
  EXPECT_EQ(refused.error().domain, "StandardStreams");
  EXPECT_EQ(refused.error().code, ENOENT);
  world.print(error, "still here\n");
  EXPECT_EQ(world.inherited(error), "still here\n");
}

TEST(LinuxStandardStreams, TheFileIsPrivateAndTheStreamsAreGivenBack) {
  RealWorld world;
  const std::string file = world.scratch.file("day.log");
  {
    LinuxStandardStreams inner(world.numbers[0].get(), world.numbers[1].get());
    const mode_t before = ::umask(0);
    ASSERT_TRUE(inner.redirectOriginals(file));
    ::umask(before);
    world.print(output, "to the file\n");
  }
  world.print(output, "to the terminal\n");
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_EQ(world.files.read(file).value(), "to the file\n");
  EXPECT_EQ(world.inherited(output), "to the terminal\n");
}

struct Pipe {
  Pipe() {
    int ends[2];
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    read = Descriptor(ends[0]);
    write = Descriptor(ends[1]);
  }
  std::string take() {
    std::string bytes(1 << 20, '\0');
    bytes.resize(
        static_cast<size_t>(std::max<ssize_t>(0, ::read(read.get(), bytes.data(), bytes.size()))));
    return bytes;
  }
  Descriptor read, write;
};

TEST(LinuxStandardStreams, WhatTheDiskRefusesGoesToTheTerminalAndIsTold) {
  const test::ScratchFolder scratch;
  Pipe terminal, other;
  LinuxStandardStreams streams(terminal.write.get(), other.write.get());
  ASSERT_TRUE(streams.redirectOriginals(scratch.file("day.log")));
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  ::signal(SIGXFSZ, SIG_IGN);
  const rlimit little{8, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &little);
  const auto fits = streams.writeOriginal(output, "12345\n");
  const auto refused = streams.writeOriginal(output, "6\n7\n");
  ::setrlimit(RLIMIT_FSIZE, &before);
  ::signal(SIGXFSZ, SIG_DFL);
  EXPECT_TRUE(fits);
  EXPECT_EQ(refused.error().code, EFBIG);
  EXPECT_NE(refused.error().description.find(scratch.file("day.log")), std::string::npos);
  EXPECT_EQ(LinuxFiles().read(scratch.file("day.log")).value(), "12345\n6\n");
  EXPECT_EQ(terminal.take(), "7\n");
  EXPECT_TRUE(streams.writeOriginal(output, "room again\n"));
}

TEST(LinuxStandardStreams, ATerminalThatTakesNothingOrIsGoneHoldsNobodyUp) {
  Pipe terminal, other;
  LinuxStandardStreams streams(terminal.write.get(), other.write.get());
  EXPECT_EQ(streams.writeOriginal(output, std::string(1 << 20, 'x')).error().code, EAGAIN);
  EXPECT_EQ(streams.writeOriginal(output, "lost").error().code, EAGAIN);
  terminal.take();
  EXPECT_TRUE(streams.writeOriginal(output, "again"));
  EXPECT_EQ(terminal.take(), "again");
  terminal.read = Descriptor();
  EXPECT_EQ(streams.writeOriginal(output, "nobody").error().code, EPIPE);
}

}  // namespace
}  // namespace kestrin
