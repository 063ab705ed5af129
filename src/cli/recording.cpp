#include "cli/recording.h"

#include <array>
#include <cerrno>
#include <unistd.h>

#include "platform/audio/wav.h"

namespace kestrin::cli {
namespace {

Result<Bytes> readStandardInput() {
  Bytes all;
  std::array<char, 65536> block{};
  for (;;) {
    const ssize_t count = ::read(STDIN_FILENO, block.data(), block.size());
    if (count == 0) return all;
    if (count < 0) return fail("Files", errno, "Standard input cannot be read");
    all.append(block.data(), static_cast<size_t>(count));
  }
}

}  // namespace

Result<Bytes> readRecording(Files& files, const std::string& wav) {
  const auto bytes = wav == "-" ? readStandardInput() : files.read(wav);
  if (!bytes) return fail(bytes.error());
  return wav::readPcm16(*bytes);
}

}  // namespace kestrin::cli
