// The port names refreshPortList shows by default: a scan by a temporary,
// never-opened serial port.
#include <string>
#include <vector>

#include "serial/SerialPort.h"

void listSerialPorts(std::vector<std::string>& names) {
  SerialPort scanner;
  scanner.listPorts(names);
}
