#pragma once

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "platform/key_monitor.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/key_names.h"

namespace kestrin {

/// The hold key straight from the kernel's input devices. Sees every key of every program, so only
/// for users who chose it and who may read the devices (group "input"). Keyboards may come and go.
/// One thread of its own, on which `onEdge` is called; `stop` (and destruction) wait for it. Our
/// synthetic input goes through the display server and does not come by here.
class EvdevKeyMonitor final : public KeyMonitor {
 public:
  /// Devices, and folders whose "event*" entries are devices.
  explicit EvdevKeyMonitor(std::vector<std::string> paths = {"/dev/input"});
  ~EvdevKeyMonitor() override;

  Status start(const std::string& key, std::function<void(KeyEdge)> onEdge) override;
  void stop() override;
  std::vector<std::string> availableKeys() override;

 private:
  struct Device {
    Descriptor descriptor;
    bool holds = false;   ///< the hold key is down on it
    std::string partial;  ///< bytes of an event that has not come whole
  };

  void openDevices();
  void watch();
  /// False when the device is gone.
  bool readEvents(Device& device);
  void handle(Device& device, int code, int value);
  void tellHeld();

  std::vector<std::string> paths_;
  std::thread thread_;
  WakeEvent wake_;
  std::atomic<bool> stopping_ = false;

  // Of the thread, once it runs.
  HoldKey key_{};
  std::function<void(KeyEdge)> onEdge_;
  Descriptor folderChanges_;
  std::map<std::string, Device> devices_;
  bool held_ = false;
};

}  // namespace kestrin
