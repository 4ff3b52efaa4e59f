#include "devices/DeviceNodes.h"

DeviceNodes& DeviceNodes::Get() {
  static DeviceNodes nodes;
  return nodes;
}

DEVINST DeviceNodes::NumberOf(const std::string& id) {
  if (const auto known = m_numbers.find(id); known != m_numbers.end()) {
    return known->second;
  }
  // A number without a node must never be; a node without a number does no harm.
  m_nodes.push_back({id});
  const auto number = static_cast<DEVINST>(m_nodes.size());
  m_numbers.emplace(id, number);
  return number;
}

DEVINST DeviceNodes::Note(const UsbDevice& device) {
  const std::lock_guard lock(m_mutex);
  const DEVINST child = device.firstChildId.empty() ? 0 : NumberOf(device.firstChildId);
  const DEVINST number = NumberOf(device.id);
  m_nodes[number - 1].isRemovable = device.isRemovable;
  m_nodes[number - 1].firstChild = child;
  return number;
}

bool DeviceNodes::Find(DEVINST number, DeviceNode& node) {
  const std::lock_guard lock(m_mutex);
  if (number == 0 || number > m_nodes.size()) {
    return false;
  }
  node = m_nodes[number - 1];
  return true;
}
