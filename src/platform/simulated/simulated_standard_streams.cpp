#include "platform/simulated/simulated_standard_streams.h"

#include <cerrno>
#include <system_error>

namespace kestrin {
namespace {

tl::unexpected<Error> failure(const std::string& what, int number) {
  return fail("StandardStreams", number, what + ": " + std::generic_category().message(number));
}

size_t indexOf(StandardStream stream) { return stream == StandardStream::output ? 0 : 1; }

}  // namespace

Status SimulatedStandardStreams::beginCapture(OnBytes onBytes) {
  if (faultDue(faults_, "streams.capture")) return failure("standard output", EIO);
  const std::lock_guard lock(mutex_);
  if (onBytes_) return failure("capture", EALREADY);
  onBytes_ = std::move(onBytes);
  return {};
}

void SimulatedStandardStreams::endCapture() {
  const std::lock_guard lock(mutex_);
  onBytes_ = nullptr;
}

Status SimulatedStandardStreams::writeOriginal(StandardStream stream, std::string_view bytes) {
  if (faultDue(faults_, "streams.write")) return failure("standard output", EIO);
  return deliver(stream, bytes);
}

Status SimulatedStandardStreams::deliver(StandardStream stream, std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  const auto written = filePath_.empty() ? Status() : files_.append(filePath_, bytes);
  if (filePath_.empty() || !written) inherited_[indexOf(stream)] += bytes;
  if (!written) return fail("StandardStreams", written.error().code, written.error().description);
  return {};
}

Status SimulatedStandardStreams::redirectOriginals(const std::string& path) {
  if (faultDue(faults_, "streams.redirect")) return failure(path, EIO);
  const auto folder = files_.info(path.substr(0, path.rfind('/')));
  if (!folder || !folder->isDirectory) return failure(path, folder ? ENOTDIR : ENOENT);
  const auto opened = files_.append(path, "");
  if (!opened) return fail("StandardStreams", opened.error().code, opened.error().description);
  const std::lock_guard lock(mutex_);
  filePath_ = path;
  return {};
}

void SimulatedStandardStreams::print(StandardStream stream, std::string_view bytes) {
  OnBytes take;
  {
    const std::lock_guard lock(mutex_);
    take = onBytes_;
  }
  if (!take) {
    // Whoever prints does not learn what became of it.
    [[maybe_unused]] const Status written = deliver(stream, bytes);
    return;
  }
  for (; !bytes.empty(); bytes.remove_prefix(std::min(readBytes, bytes.size()))) {
    take(stream, bytes.substr(0, readBytes));
  }
}

std::string SimulatedStandardStreams::inherited(StandardStream stream) const {
  const std::lock_guard lock(mutex_);
  return inherited_[indexOf(stream)];
}

bool SimulatedStandardStreams::isCaptured() const {
  const std::lock_guard lock(mutex_);
  return static_cast<bool>(onBytes_);
}

}  // namespace kestrin
