#pragma once

#include <array>
#include <mutex>

#include "platform/files.h"
#include "platform/simulated/fault_plan.h"
#include "platform/standard_streams.h"

namespace kestrin {

/// Two streams of which a test prints and sees where the text went. A redirection writes into
/// `files`, so that a full or read-only disk behaves as one. Sites: "streams.capture",
/// "streams.redirect", "streams.write" (EIO each).
class SimulatedStandardStreams final : public StandardStreams {
 public:
  explicit SimulatedStandardStreams(Files& files, FaultPlan* faults = nullptr)
      : files_(files), faults_(faults) {}

  Status beginCapture(OnBytes onBytes) override;
  void endCapture() override;
  Status writeOriginal(StandardStream stream, std::string_view bytes) override;
  Status redirectOriginals(const std::string& path) override;

  /// As the process prints. The capture gets at most `readBytes` at a time.
  void print(StandardStream stream, std::string_view bytes);
  size_t readBytes = 4096;
  /// What arrived where the stream went before anything was done to it.
  std::string inherited(StandardStream stream) const;
  bool isCaptured() const;

 private:
  Status deliver(StandardStream stream, std::string_view bytes);

  Files& files_;
  FaultPlan* const faults_;
  mutable std::mutex mutex_;
  OnBytes onBytes_;
  std::string filePath_;
  std::array<std::string, 2> inherited_;
};

}  // namespace kestrin
