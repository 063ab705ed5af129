#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/dispatch/dispatch.h"
#include "platform/linux/descriptor.h"
#include "platform/settings.h"
#include "platform/settings_observers.h"

namespace kestrin {

/// The settings as one flat JSON object in a file that a person can read and a script can prepare.
///
/// A change takes a lock that all processes share, reads the file anew, changes the one key and
/// replaces the file, so that two processes never lose each other's keys. A thread of its own
/// watches the folder for others' changes; observers of those run on it. A file that is no JSON
/// object is kept aside as "settings.json.broken-TIME": at the start the defaults are used then,
/// later the values known so far. A file that cannot be read is never replaced.
class JsonSettings final : public SettingsStore {
 public:
  /// `path` usually $XDG_CONFIG_HOME/kestrin/settings.json. `warn` gets one line for the user's log
  /// when something is wrong with the file; it may be called from any thread.
  JsonSettings(Clock& clock, std::string path, std::function<void(std::string)> warn);
  ~JsonSettings() override;

  std::optional<Json> get(std::string_view key) const override;
  void set(std::string_view key, Json value) override;
  void remove(std::string_view key) override;
  std::vector<std::string> keys() const override;
  SubscriptionHandle observe(std::function<void(const std::string& key)> observer) override;

 private:
  enum class Broken { moveAside, leave };
  using Changes = std::map<std::string, std::optional<Json>, std::less<>>;

  /// The file's object: nothing when it cannot be had. With the write lock held.
  std::optional<Json> load(Broken whenBroken);
  void change(std::string_view key, std::optional<Json> value);
  /// Takes over what a file says, with what could not be written laid over it; tells the keys
  /// altered.
  std::vector<std::string> adopt(const Json& file);
  std::string moveAside() const;
  void reload();
  void watch();
  void warnOnce(const std::string& line);

  Clock& clock_;
  const std::string path_;
  const std::function<void(std::string)> warn_;
  SettingsObservers observers_;

  std::mutex writeMutex_;  ///< held while the file is read or written and its values are taken over
  Changes unsaved_;        ///< values that could not be written, kept for this run
  std::string lastWarning_;

  mutable std::mutex mutex_;  ///< guards values_
  std::map<std::string, Json, std::less<>> values_;

  Descriptor notify_;
  WakeEvent stop_;
  std::thread watcher_;
};

}  // namespace kestrin
