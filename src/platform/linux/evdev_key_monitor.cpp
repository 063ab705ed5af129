#include "platform/linux/evdev_key_monitor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/input.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>

namespace kestrin {
namespace {

const char* const domain = "KeyMonitor";

enum KeyValue { released = 0, pressed = 1 };  // 2 is auto-repeat

std::vector<std::string> devicePaths(const std::vector<std::string>& paths) {
  namespace fs = std::filesystem;
  std::vector<std::string> devices;
  for (const std::string& path : paths) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
      devices.push_back(path);
      continue;
    }
    for (const auto& entry : fs::directory_iterator(path, error)) {
      if (entry.path().filename().string().rfind("event", 0) == 0)
        devices.push_back(entry.path().string());
    }
  }
  return devices;
}

std::string folderOf(const std::string& path) {
  std::error_code error;
  return std::filesystem::is_directory(path, error)
             ? path
             : std::filesystem::path(path).parent_path().string();
}

/// Mice and lids are no business of ours. What cannot be asked is not a device of the kernel (a
/// pipe, in a test or from a remapping tool) and counts as a keyboard.
bool hasKeys(int fd) {
  unsigned char types[(EV_MAX + 7) / 8] = {};
  if (ioctl(fd, EVIOCGBIT(0, sizeof types), types) < 0) return true;
  return (types[EV_KEY / 8] >> (EV_KEY % 8)) & 1;
}

}  // namespace

EvdevKeyMonitor::EvdevKeyMonitor(std::vector<std::string> paths) : paths_(std::move(paths)) {}
EvdevKeyMonitor::~EvdevKeyMonitor() { stop(); }

void EvdevKeyMonitor::openDevices() {
  for (const std::string& path : devicePaths(paths_)) {
    if (devices_.count(path)) continue;
    Descriptor opened(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (opened.valid() && hasKeys(opened.get())) devices_[path].descriptor = std::move(opened);
  }
}

Status EvdevKeyMonitor::start(const std::string& key, std::function<void(KeyEdge)> onEdge) {
  stop();
  const auto known = holdKeyNamed(key);
  if (!known) return fail(domain, 3, "There is no key named \"" + key + "\" to hold");
  // Watched before the first look, so that nothing appears in between.
  folderChanges_ = Descriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  for (const std::string& path : paths_)
    inotify_add_watch(folderChanges_.get(), folderOf(path).c_str(),
                      IN_CREATE | IN_MOVED_TO | IN_ATTRIB);
  openDevices();
  if (devices_.empty())
    return fail(domain, 5,
                "No keyboard can be read; this needs membership in the group \"input\" "
                "(sudo usermod -aG input \"$USER\", then log in again)");
  key_ = *known;
  onEdge_ = std::move(onEdge);
  held_ = false;
  stopping_ = false;
  thread_ = std::thread([this] { watch(); });
  return {};
}

void EvdevKeyMonitor::stop() {
  if (thread_.joinable()) {
    stopping_ = true;
    wake_.signal();
    thread_.join();
    wake_.reset();
  }
  devices_.clear();
  onEdge_ = nullptr;
}

std::vector<std::string> EvdevKeyMonitor::availableKeys() {
  std::vector<std::string> names;
  for (const HoldKey& key : holdKeys()) names.emplace_back(key.name);
  return names;
}

void EvdevKeyMonitor::watch() {
  while (!stopping_) {
    std::vector<int> watched = {wake_.get(), folderChanges_.get()};
    for (const auto& [path, device] : devices_) watched.push_back(device.descriptor.get());
    waitReadable(watched, std::chrono::milliseconds(-1));
    char changes[4096];
    if (read(folderChanges_.get(), changes, sizeof changes) > 0) openDevices();
    for (auto entry = devices_.begin(); entry != devices_.end() && !stopping_;) {
      entry = readEvents(entry->second) ? std::next(entry) : devices_.erase(entry);
    }
    if (!stopping_) tellHeld();  // the device with the key down may have been unplugged
  }
}

bool EvdevKeyMonitor::readEvents(Device& device) {
  char bytes[64 * sizeof(input_event)];
  while (!stopping_) {
    const ssize_t count = read(device.descriptor.get(), bytes, sizeof bytes);
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    if (count == 0) return false;
    device.partial.append(bytes, static_cast<size_t>(count));
    size_t used = 0;
    for (; device.partial.size() - used >= sizeof(input_event); used += sizeof(input_event)) {
      input_event event;
      std::memcpy(&event, device.partial.data() + used, sizeof event);
      if (event.type == EV_KEY) handle(device, event.code, event.value);
    }
    device.partial.erase(0, used);
  }
  return true;
}

void EvdevKeyMonitor::handle(Device& device, int code, int value) {
  if (value != pressed && value != released) return;
  // Firmware that keeps fn to itself may send the wake-up key for it.
  const bool isFn = key_.evdevCode == KEY_FN && code == KEY_WAKEUP;
  if (code == key_.evdevCode || isFn) {
    device.holds = value == pressed;
    tellHeld();
  } else if (value == pressed && held_ && code < BTN_MISC) {
    onEdge_(KeyEdge::otherKey);
  }
}

void EvdevKeyMonitor::tellHeld() {
  const bool held = std::any_of(devices_.begin(), devices_.end(),
                                [](const auto& entry) { return entry.second.holds; });
  if (std::exchange(held_, held) != held) onEdge_(held ? KeyEdge::holdDown : KeyEdge::holdUp);
}

}  // namespace kestrin
