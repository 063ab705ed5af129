#include "platform/linux/linux_standard_streams.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

#include "platform/dispatch/alarm_thread.h"
#include "platform/linux/posix_error.h"

namespace kestrin {
namespace {

constexpr const char* domain = "StandardStreams";
/// Room for a burst of several thousand lines while the reader waits for the processor. A wish: the
/// user's limit on pipe memory may leave the usual 64 KiB.
constexpr int pipeBytes = 1 << 20;
constexpr size_t blockBytes = 65'536;
constexpr int patienceMilliseconds = 250;

constexpr std::array<const char*, 2> names{"standard output", "standard error"};

size_t indexOf(StandardStream stream) { return stream == StandardStream::output ? 0 : 1; }

tl::unexpected<Error> failure(const std::string& what, int number) {
  return fail(posixError(domain, what, number));
}

/// A copy that no child inherits and that does not land on a standard stream's number, which is
/// free when somebody closed it.
Descriptor copyAbove(int fd) { return Descriptor(::fcntl(fd, F_DUPFD_CLOEXEC, 3)); }

void flushAll() {
  std::fflush(stdout);
  std::fflush(stderr);
}

/// Blocks that the descriptor takes without waiting; 0 or errno. Files never keep their writer
/// waiting for a reader.
int writeWithPatience(int fd, std::string_view& bytes, bool& stalled) {
  while (!bytes.empty()) {
    pollfd room{fd, POLLOUT, 0};
    const int ready = ::poll(&room, 1, stalled ? 0 : patienceMilliseconds);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return errno;
    stalled = ready == 0;
    if (stalled) return EAGAIN;
    // Written to all the same, it would cost the process its life (SIGPIPE).
    if ((room.revents & (POLLERR | POLLNVAL)) != 0) return EPIPE;
    // A pipe that has room takes so much at once, and whole.
    const ssize_t written = ::write(fd, bytes.data(), std::min<size_t>(bytes.size(), PIPE_BUF));
    if (written < 0 && errno != EINTR && errno != EAGAIN) return errno;
    if (written > 0) bytes.remove_prefix(static_cast<size_t>(written));
  }
  return 0;
}

int writeToFile(int fd, std::string_view& bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return errno;
    if (written > 0) bytes.remove_prefix(static_cast<size_t>(written));
  }
  return 0;
}

}  // namespace

void openClosedStreams() {
  for (int number = 0; number <= 2; ++number) {
    if (::fcntl(number, F_GETFD) >= 0) continue;
    // The lowest free number, which is this one.
    [[maybe_unused]] const int opened = ::open("/dev/null", O_RDWR);
  }
}

LinuxStandardStreams::LinuxStandardStreams(int output, int error) {
  const std::array<int, 2> numbers{output, error};
  for (size_t i = 0; i < numbers.size(); ++i) {
    streams_[i].number = numbers[i];
    streams_[i].inherited = copyAbove(numbers[i]);
  }
}

LinuxStandardStreams::~LinuxStandardStreams() {
  endCapture();
  flushAll();
  file_ = Descriptor();
  for (Stream& stream : streams_) restore(stream);
}

Status LinuxStandardStreams::beginCapture(OnBytes onBytes) {
  if (reader_.joinable()) return failure("capture", EALREADY);
  if (const Status piped = putPipesInPlace(); !piped) {
    for (Stream& stream : streams_) {
      restore(stream);
      stream.captured = Descriptor();
    }
    return piped;
  }
  // On a pipe the library would hold printed lines back until a block is full. A line is one write
  // here, even a long one, so that nothing of other processes comes between. The library goes on
  // using the buffer until the process ends.
  static std::array<char, blockBytes> outputBuffer;
  std::setvbuf(stdout, outputBuffer.data(), _IOLBF, outputBuffer.size());
  stopping_ = false;
  wake_.reset();
  const dispatch::SignalsBlocked signalsStayWithTheMainThread;
  reader_ = std::thread([this, onBytes = std::move(onBytes)] { readUntilStopped(onBytes); });
  return {};
}

Status LinuxStandardStreams::putPipesInPlace() {
  std::array<Descriptor, 2> writeEnds;
  for (size_t i = 0; i < streams_.size(); ++i) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return failure(names[i], errno);
    const Descriptor read(ends[0]), write(ends[1]);
    streams_[i].captured = copyAbove(read.get());
    writeEnds[i] = copyAbove(write.get());
    if (!streams_[i].captured.valid() || !writeEnds[i].valid()) return failure(names[i], errno);
    ::fcntl(streams_[i].captured.get(), F_SETFL, O_NONBLOCK);
    ::fcntl(writeEnds[i].get(), F_SETPIPE_SZ, pipeBytes);
  }
  flushAll();
  for (size_t i = 0; i < streams_.size(); ++i) {
    if (::dup2(writeEnds[i].get(), streams_[i].number) < 0) return failure(names[i], errno);
  }
  return {};
}

void LinuxStandardStreams::endCapture() {
  if (!reader_.joinable()) return;
  flushAll();
  {
    const std::lock_guard lock(mutex_);
    for (Stream& stream : streams_) restore(stream);
  }
  stopping_ = true;
  wake_.signal();
  reader_.join();
  for (Stream& stream : streams_) stream.captured = Descriptor();
}

void LinuxStandardStreams::restore(Stream& stream) {
  const Descriptor& to = file_.valid() ? file_ : stream.inherited;
  if (to.valid()) ::dup2(to.get(), stream.number);
}

void LinuxStandardStreams::readUntilStopped(const OnBytes& onBytes) {
  std::string block(blockBytes, '\0');
  while (!stopping_) {
    waitReadable({wake_.get(), streams_[0].captured.get(), streams_[1].captured.get()},
                 std::chrono::milliseconds(-1));
    for (size_t i = 0; i < streams_.size(); ++i) readBlock(i, onBytes, block);
  }
  // What was printed before is all in the pipes. A child that goes on printing into them could keep
  // an unbounded loop here busy for ever.
  for (size_t i = 0; i < streams_.size(); ++i) {
    for (size_t left = pipeBytes / blockBytes + 1; left > 0; --left) {
      if (!readBlock(i, onBytes, block)) break;
    }
  }
}

bool LinuxStandardStreams::readBlock(size_t index, const OnBytes& onBytes, std::string& block) {
  Descriptor& from = streams_[index].captured;
  if (!from.valid()) return false;
  const ssize_t got = ::read(from.get(), block.data(), block.size());
  if (got < 0) return errno == EINTR;
  if (got == 0) {
    // Somebody closed the number, and no child holds it: waiting on would only spin.
    from = Descriptor();
    return false;
  }
  onBytes(index == 0 ? StandardStream::output : StandardStream::error,
          {block.data(), static_cast<size_t>(got)});
  return true;
}

Status LinuxStandardStreams::writeOriginal(StandardStream which, std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  Stream& stream = streams_[indexOf(which)];
  int refused = 0;
  if (file_.valid()) {
    refused = writeToFile(file_.get(), bytes);
    if (refused == 0) return {};
  }
  const int lost = writeWithPatience(stream.inherited.get(), bytes, stream.stalled);
  if (refused != 0) return failure(filePath_, refused);
  if (lost != 0) return failure(names[indexOf(which)], lost);
  return {};
}

Status LinuxStandardStreams::redirectOriginals(const std::string& path) {
  Descriptor file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
  if (!file.valid()) return failure(path, errno);
  file = copyAbove(file.get());
  struct stat status {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0) return failure(path, errno);
  if (!S_ISREG(status.st_mode)) return failure(path, EINVAL);
  // Older versions of the file may be open to others.
  ::fchmod(file.get(), 0600);
  flushAll();
  const std::lock_guard lock(mutex_);
  file_ = std::move(file);
  filePath_ = path;
  if (!reader_.joinable()) {
    for (Stream& stream : streams_) restore(stream);
  }
  return {};
}

}  // namespace kestrin
