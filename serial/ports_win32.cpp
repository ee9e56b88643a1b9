// Serial ports on Windows: the MS-DOS device names that contain "COM" and are at
// least four characters long (COM1, COM12, also XCOM2), in the system's order.
#include <windows.h>

#include <cstring>
#include <string>

#include "serial/PortSystem.h"

namespace portsys {

PortScan scanPorts() {
  // Cleared first, so that a failing query yields an empty list.
  static constexpr DWORD kBufferSize = 0x10000;
  char buffer[kBufferSize] = {};
  QueryDosDeviceA(nullptr, buffer, kBufferSize);

  PortScan scan;
  std::size_t offset = 0;
  while (offset < kBufferSize && buffer[offset] != '\0') {
    const char* name = buffer + offset;
    const std::size_t length = strnlen(name, kBufferSize - offset);
    std::string text(name, length);
    if (length >= 4 && text.find("COM") != std::string::npos) scan.names.push_back(std::move(text));
    offset += length + 1;
  }
  scan.scanned = static_cast<std::uint32_t>(offset);
  return scan;
}

} // namespace portsys
