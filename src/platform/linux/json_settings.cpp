#include "platform/linux/json_settings.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/inotify.h>

#include "platform/linux/atomic_file.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/posix_error.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

/// A lock among processes, held until destruction. Beside the file, because the file itself is
/// replaced by each change.
Result<Descriptor> lockFile(const std::string& path) {
  const std::string name = path + ".lock";
  if (const auto made = makeFolders(folderOf(path)); !made) return fail(made.error());
  Descriptor fd(::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!fd.valid()) return fail(posixError("Files", name, errno));
  while (::flock(fd.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return fail(posixError("Files", name, errno));
  }
  return fd;
}

}  // namespace

JsonSettings::JsonSettings(Clock& clock, std::string path, std::function<void(std::string)> warn)
    : clock_(clock),
      path_(std::move(path)),
      warn_(std::move(warn)),
      notify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  // The watch comes first: a change between the first reading and the watch would go unseen.
  const std::string folder = folderOf(path_);
  const Status made = makeFolders(folder);
  if (made && notify_.valid()) {
    inotify_add_watch(notify_.get(), folder.c_str(),
                      IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE | IN_ONLYDIR);
  }
  {
    const std::lock_guard writing(writeMutex_);
    // Without the lock of others (a folder that cannot be written) reading is still safe: the file
    // is only ever replaced whole.
    const auto lock = lockFile(path_);
    if (const auto file = load(Broken::moveAside)) adopt(*file);
  }
  worker_ = std::thread([this] { work(); });
}

JsonSettings::~JsonSettings() {
  stop_.signal();
  worker_.join();
  save();
}

Status JsonSettings::flush() { return save(); }

std::optional<Json> JsonSettings::get(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  const auto found = values_.find(key);
  if (found == values_.end()) return {};
  return found->second;
}

std::vector<std::string> JsonSettings::keys() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const auto& entry : values_) out.push_back(entry.first);
  return out;
}

void JsonSettings::set(std::string_view key, Json value) { change(key, std::move(value)); }
void JsonSettings::remove(std::string_view key) { change(key, std::nullopt); }

SubscriptionHandle JsonSettings::observe(std::function<void(const std::string& key)> observer) {
  return observers_.add(std::move(observer));
}

void JsonSettings::change(std::string_view key, std::optional<Json> value) {
  const std::string name(key);
  {
    const std::lock_guard lock(mutex_);
    const auto old = values_.find(name);
    const bool same = value ? old != values_.end() && old->second == *value : old == values_.end();
    if (same) return;
    unsaved_[name] = value;
    if (value) {
      values_[name] = std::move(*value);
    } else {
      values_.erase(name);
    }
    changed_.signal();
  }
  observers_.notify(name);
}

Status JsonSettings::save() {
  std::vector<std::string> altered;
  {
    const std::lock_guard writing(writeMutex_);
    Changes changes;
    {
      const std::lock_guard lock(mutex_);
      changes = unsaved_;
    }
    if (changes.empty()) return {};
    Json content;
    if (auto written = write(changes, content); !written) {
      warnOnce("The settings could not be saved: " + written.error().description);
      return written;
    }
    lastWarning_.clear();
    {
      const std::lock_guard lock(mutex_);
      for (const auto& [name, value] : changes) {
        const auto wanted = unsaved_.find(name);
        if (wanted != unsaved_.end() && wanted->second == value) unsaved_.erase(wanted);
      }
    }
    altered = adopt(content);
  }
  for (const std::string& key : altered) observers_.notify(key);
  return {};
}

Status JsonSettings::write(const Changes& changes, Json& content) {
  const auto lock = lockFile(path_);
  if (!lock) return fail(lock.error());
  auto file = load(Broken::moveAside);
  if (!file) return fail("Files", EIO, path_ + " is left as it is");
  content = std::move(*file);
  for (const auto& [name, value] : changes) {
    if (value) {
      content.set(name, *value);
    } else {
      content.erase(name);
    }
  }
  return LinuxFiles().writeAtomic(path_, content.dumpPretty() + "\n");
}

std::optional<Json> JsonSettings::load(Broken whenBroken) {
  const auto text = LinuxFiles().read(path_);
  if (!text) {
    if (text.error().code == ENOENT) return Json::object();
    warnOnce("The settings could not be read: " + text.error().description);
    return {};
  }
  if (text::trim(*text).empty()) return Json::object();
  auto parsed = Json::parse(*text);
  if (parsed && parsed->isObject()) return std::move(*parsed);
  if (whenBroken == Broken::leave) {
    warnOnce("The settings file " + path_ + " is not valid JSON; its change is ignored");
    return {};
  }
  const std::string kept = moveAside();
  if (kept.empty()) {
    warnOnce("The settings file " + path_ + " is not valid JSON and could not be kept aside");
    return {};
  }
  warnOnce("The settings file was not valid JSON; it is kept as " + kept);
  // At the start nothing is known yet: the defaults. Later the values in use are still good.
  Json known = Json::object();
  const std::lock_guard lock(mutex_);
  for (const auto& [name, value] : values_) known.set(name, value);
  return known;
}

std::string JsonSettings::moveAside() const {
  const std::string base =
      path_ + ".broken-" + dates::format(clock_.wallNow(), "yyyyMMdd-HHmmss", "UTC");
  std::string name = base;
  for (int i = 2; LinuxFiles().exists(name); ++i) name = base + "-" + std::to_string(i);
  return ::rename(path_.c_str(), name.c_str()) == 0 ? name : std::string();
}

std::vector<std::string> JsonSettings::adopt(const Json& file) {
  std::map<std::string, Json, std::less<>> fresh;
  for (const auto& [key, value] : file.members()) fresh[key] = value;
  const std::lock_guard lock(mutex_);
  for (const auto& [key, value] : unsaved_) {
    if (value) {
      fresh[key] = *value;
    } else {
      fresh.erase(key);
    }
  }
  std::vector<std::string> altered;
  for (const auto& [key, value] : fresh) {
    const auto old = values_.find(key);
    if (old == values_.end() || !(old->second == value)) altered.push_back(key);
  }
  for (const auto& entry : values_) {
    if (fresh.count(entry.first) == 0) altered.push_back(entry.first);
  }
  values_ = std::move(fresh);
  return altered;
}

void JsonSettings::reload() {
  std::vector<std::string> altered;
  {
    const std::lock_guard writing(writeMutex_);
    // A person may be in the middle of an edit: a broken file is left alone here.
    if (const auto file = load(Broken::leave)) altered = adopt(*file);
  }
  for (const std::string& key : altered) observers_.notify(key);
}

void JsonSettings::work() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  const std::string name = path_.substr(path_.rfind('/') + 1);
  for (;;) {
    std::array<pollfd, 3> waits{
        {{notify_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}, {changed_.get(), POLLIN, 0}}};
    if (::poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) return;
    if (waits[1].revents) return;
    if (waits[2].revents) {
      changed_.reset();
      save();
    }
    if (waits[0].revents && fileTouched(name)) reload();
  }
}

bool JsonSettings::fileTouched(const std::string& name) const {
  alignas(inotify_event) std::array<char, 8192> buffer{};
  bool touched = false;
  for (;;) {
    const ssize_t got = ::read(notify_.get(), buffer.data(), buffer.size());
    if (got <= 0) return touched;
    for (size_t at = 0; at < static_cast<size_t>(got);) {
      inotify_event event{};
      std::memcpy(&event, buffer.data() + at, sizeof event);
      const char* changed = buffer.data() + at + sizeof event;
      // An overflow has no name: anything may have changed.
      touched = touched || event.len == 0 || name == changed;
      at += sizeof event + event.len;
    }
  }
}

void JsonSettings::warnOnce(const std::string& line) {
  if (line == lastWarning_) return;
  lastWarning_ = line;
  if (warn_) warn_(line);
}

}  // namespace kestrin
