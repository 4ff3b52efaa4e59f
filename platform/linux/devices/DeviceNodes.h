// Numbers for USB devices and their children, as the configuration manager hands them out.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "SetupApi.h"
#include "devices/DeviceProvider.h"

struct DeviceNode {
  std::string id;
  bool isRemovable = true;
  DEVINST firstChild = 0;  // 0: none
};

// The nodes of the process. A number stays with its instance id for good. Any thread.
class DeviceNodes {
 public:
  static DeviceNodes& Get();

  // Takes in what is known of a device now; answers its number.
  DEVINST Note(const UsbDevice& device);
  // False for a number that was never handed out.
  bool Find(DEVINST number, DeviceNode& node);

 private:
  DEVINST NumberOf(const std::string& id);

  std::mutex m_mutex;
  std::map<std::string, DEVINST> m_numbers;
  std::vector<DeviceNode> m_nodes;  // number 1 first
};
