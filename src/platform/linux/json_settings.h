#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/dispatch/dispatch.h"
#include "platform/linux/descriptor.h"
#include "platform/observers.h"
#include "platform/settings.h"

namespace kestrin {

/// The settings as one flat JSON object in a file that a person can read and a script can prepare.
///
/// A change is in memory at once; a thread of its own writes it. Writing takes a lock that all
/// processes share, reads the file anew, changes just the altered keys and replaces the file, so
/// that two processes never lose each other's keys. The same thread watches the folder for others'
/// changes; observers of those run on it. A file that is no JSON
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
  Status flush() override;
  std::vector<std::string> keys() const override;
  SubscriptionHandle observe(std::function<void(const std::string& key)> observer) override;

 private:
  enum class Broken { moveAside, leave };
  using Changes = std::map<std::string, std::optional<Json>, std::less<>>;

  /// The file's object: nothing when it cannot be had. With the write lock held.
  std::optional<Json> load(Broken whenBroken);
  void change(std::string_view key, std::optional<Json> value);
  /// Writes what is unsaved.
  Status save();
  /// With the write lock held: lays `changes` over the file.
  Status write(const Changes& changes, Json& content);
  /// Takes over what a file says, with what is not written yet laid over it; tells the keys
  /// altered.
  std::vector<std::string> adopt(const Json& file);
  std::string moveAside() const;
  void reload();
  void work();
  /// Reads the folder's events; true when one may concern the file.
  bool fileTouched(const std::string& name) const;
  void warnOnce(const std::string& line);

  Clock& clock_;
  const std::string path_;
  const std::function<void(std::string)> warn_;
  Observers<const std::string&> observers_;

  std::mutex writeMutex_;  ///< held while the file is read or written and its values are taken over
  std::string lastWarning_;

  mutable std::mutex mutex_;  ///< guards the two below; never held while the disk is used
  Changes unsaved_;           ///< not written yet, or could not be
  std::map<std::string, Json, std::less<>> values_;

  Descriptor notify_;
  WakeEvent stop_, changed_;
  std::thread worker_;
};

}  // namespace kestrin
