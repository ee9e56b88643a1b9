#include "app/GuiState.h"

#include <atomic>

std::string programPath;
std::vector<std::string> portNames;
const char* portItems[portTableSize] = {};
std::int32_t selectedPort = 0;
std::vector<std::string> deviceIds;

// The serial layer's own scan (PortListing.cpp).
void listSerialPorts(std::vector<std::string>& names);

namespace {
PortLister portLister = nullptr;
std::vector<std::string> portLabels; // what portItems point at
std::atomic<WakeHandler> wakeHandler{nullptr};
} // namespace

void setProgramPath(const std::string& path) { programPath = path; }

std::string portLabel(const std::string& name) {
  const std::size_t slash = name.find_last_of('/');
  return slash == std::string::npos || slash + 1 == name.size() ? name : name.substr(slash + 1);
}

void setPortLister(PortLister lister) { portLister = lister; }

void refreshPortList() {
  portNames.clear();
  if (portLister)
    portLister(portNames);
  else
    listSerialPorts(portNames);
  if (portNames.size() > static_cast<std::size_t>(portTableSize)) portNames.resize(portTableSize);

  const int count = static_cast<int>(portNames.size());
  portLabels.clear();
  for (const std::string& name : portNames) portLabels.push_back(portLabel(name));
  for (int i = 0; i < portTableSize; ++i) portItems[i] = i < count ? portLabels[i].c_str() : nullptr;

  // The combo box must never be handed an index outside the list.
  if (selectedPort >= count) selectedPort = count > 0 ? count - 1 : 0;
  if (selectedPort < 0) selectedPort = 0;
}

void setWakeHandler(WakeHandler handler) { wakeHandler.store(handler); }

void wakeGui() {
  if (WakeHandler handler = wakeHandler.load()) handler();
}
