#pragma once
// The operating-system half of SerialPort: one implementation per platform
// (serial_win32.cpp / serial_linux.cpp, ports_win32.cpp / ports_linux.cpp).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct PortHandle;

namespace portsys {

struct LineSettings {
  std::uint32_t baud;
  std::uint32_t parity;   // SerialPort::ParityCode; an unknown code keeps the driver's parity
  std::uint8_t dataBits;  // 5..8, checked by the caller
  std::uint32_t stopBits; // SerialPort::StopCode, combination checked by stopBitsFit
};

// Opens and configures the device. On failure prints the failing step's text and
// returns null; nothing stays open.
PortHandle* openPort(const std::string& name, const LineSettings& line);
void closePort(PortHandle* port);
// True once the device is gone (hang-up, unplug, node removed): reads and writes
// then fail at once. The owner closes the port.
bool lineLost(PortHandle* port);
// The stop-bit and data-bit combination checks, run by openPort after the device is
// open (so a missing port reports only that). Prints the refusal; false when refused.
bool stopBitsFit(const LineSettings& line, const std::string& name);
// Bytes waiting in the input queue, 0 on error.
std::uint32_t queued(PortHandle* port);
// Waits at most `micros` microseconds for a byte to be queued; true when one is (or
// the device reports a hang-up, which the next read then sees). A platform without a
// way to wait for input sleeps the whole time and then looks.
bool waitReadable(PortHandle* port, std::uint32_t micros);
// Reads until size bytes have come or 100 ms pass without a byte. False on an error.
bool readSome(PortHandle* port, std::uint8_t* buffer, std::uint32_t size, std::uint32_t& got);

enum class WriteResult { ok, writeFailed, flushFailed };
// Writes the whole buffer and waits until it has been handed to the line.
WriteResult writeAll(PortHandle* port, const std::uint8_t* data, std::size_t length);
void purge(PortHandle* port);

struct PortScan {
  std::vector<std::string> names; // the serial ports, in the system's order
  std::uint32_t scanned = 0;      // length of the scanned name list in characters
};
PortScan scanPorts();

} // namespace portsys
