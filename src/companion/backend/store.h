#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/dates/dates.h"
#include "platform/json/json.h"
#include "platform/result.h"

namespace kestrin::backend {

struct Database;

/// One dictation.
struct Dictation {
  int64_t id = 0;
  std::string userId;
  Date at;
  std::string mode;
  std::string transcript;
  std::string processedText;
  std::string appName;
  bool autoDetected = false;
  bool success = true;
  int64_t audioMilliseconds = 0;  ///< 0: unknown
};

struct Statistics {
  int64_t totalWords = 0;  ///< of the texts that came out
  int64_t averageWpm = 0;  ///< words said per minute, where the length is known
  int64_t streak = 0;      ///< days in a row with a dictation, up to today or yesterday
  int64_t transcriptionCount = 0;
};

/// How a user has sounded: for each attribute the labels' mean probability over all samples.
struct VoiceSum {
  int64_t sampleCount = 0;
  Date createdAt;
  Date updatedAt;
  std::map<std::string, std::map<std::string, double>> attributes;
};

/// The backend's data in one SQLite file. Not thread-safe: keep it on one queue. Errors: domain
/// "Store", SQLite's code.
class Store {
 public:
  /// Opens or creates the file (mode 0600, its folder 0700).
  static Result<Store> open(const std::string& path);
  Store(Store&&) noexcept;
  ~Store();

  Status add(const Dictation& dictation);
  /// Newest first.
  Result<std::vector<Dictation>> history(const std::string& userId, int64_t limit);
  /// Nothing of the texts stays in the file.
  Status clearHistory(const std::string& userId);
  /// The oldest dictation that is kept.
  Result<std::optional<Date>> firstDictation(const std::string& userId);
  /// Days are those of the time zone (empty: the system's) at `now`.
  Result<Statistics> statistics(const std::string& userId, Date now, const std::string& zone);

  /// Adds one sample: an object of attributes, each a list of {token, probability}.
  Status addVoiceSample(const std::string& userId, const Json& probabilities, Date now);
  Result<std::optional<VoiceSum>> voiceSum(const std::string& userId);

  /// For what keeps records of other kinds in the same file, on the same queue.
  const std::shared_ptr<Database>& database() const { return database_; }

 private:
  int64_t streak(const std::string& userId, Date now, const std::string& zone);
  explicit Store(std::shared_ptr<Database> database);
  std::shared_ptr<Database> database_;
};

}  // namespace kestrin::backend
