// Port enumeration shared by all platforms; the platform supplies the scan.
#include <cstdlib>

#include "base/Console.h"
#include "serial/PortSystem.h"
#include "serial/SerialPort.h"

void SerialPort::listPorts(std::vector<std::string>& list) {
  list.clear();
  for (auto& name : portsys::scanPorts().names) list.push_back(std::move(name));
}

// The first call (portNumber 0) takes the first port and parses its number from the
// fourth character on (COM7 gives 7). Once a port was found, a later call only
// reports whether any port is present and leaves the found name alone.
bool SerialPort::findPort() {
  const portsys::PortScan scan = portsys::scanPorts();
  if (scan.names.empty()) return false;
  if (portNumber_ != 0) return true;
  foundPortName_ = scan.names.front();
  portNumber_ = foundPortName_.size() > 3 ? static_cast<std::uint16_t>(std::atoi(foundPortName_.c_str() + 3)) : 0;
  return true;
}

std::uint32_t SerialPort::printPorts() {
  const portsys::PortScan scan = portsys::scanPorts();
  // The name and its line end are one message, so that a sink sees whole lines.
  for (const auto& name : scan.names) consolePrint(name + "\n", name);
  return scan.scanned;
}
