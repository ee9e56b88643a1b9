// Serial line on Windows: a communications handle with fixed line settings and a
// 100 ms read interval time-out. An unplugged adapter shows as one of a few error
// codes on any call; the line is then marked lost.
#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <thread>

#include "base/Console.h"
#include "serial/PortSystem.h"

struct PortHandle {
  HANDLE handle;
  DCB dcb;
  COMMTIMEOUTS timeouts;
  std::atomic<bool> lost{false};
};

namespace {

PortHandle* fail(PortHandle* port, const char* text, const std::string& name) {
  if (text != nullptr) consolePrint(text, name);
  CloseHandle(port->handle);
  delete port;
  return nullptr;
}

// The flag word of the DCB: keep fDsrSensitivity, fTXContinueOnXoff and the reserved
// high bits, set fBinary, clear the rest (no parity check, no flow control, DTR and
// RTS disabled, no abort on error).
void setFlagWord(DCB& dcb) {
  static_assert(sizeof(DCB) == 28, "DCB layout");
  constexpr std::size_t flagOffset = offsetof(DCB, BaudRate) + sizeof(DWORD);
  std::uint32_t flags;
  std::memcpy(&flags, reinterpret_cast<const unsigned char*>(&dcb) + flagOffset, sizeof flags);
  flags = (flags & 0xFFFF80C0u) | 1u;
  std::memcpy(reinterpret_cast<unsigned char*>(&dcb) + flagOffset, &flags, sizeof flags);
}

// The errors a call on a communications handle gets once its device is gone
// (ERROR_NOT_READY is what Wine reports for a line that hung up).
void noteError(PortHandle* port) {
  switch (GetLastError()) {
  case ERROR_NOT_READY:
  case ERROR_ACCESS_DENIED:
  case ERROR_BAD_COMMAND:
  case ERROR_OPERATION_ABORTED:
  case ERROR_INVALID_HANDLE:
  case ERROR_DEVICE_NOT_CONNECTED: port->lost.store(true); break;
  default: break;
  }
}

void applyLine(DCB& dcb, const portsys::LineSettings& line) {
  static const BYTE parityTable[] = {EVENPARITY, MARKPARITY, NOPARITY, ODDPARITY, SPACEPARITY};
  dcb.fBinary = 1;
  dcb.BaudRate = line.baud;
  dcb.ByteSize = line.dataBits;
  if (line.parity <= 4) dcb.Parity = parityTable[line.parity];
  if (line.stopBits == 0) dcb.StopBits = ONESTOPBIT;
  if (line.stopBits == 1) dcb.StopBits = ONE5STOPBITS;
  if (line.stopBits == 2) dcb.StopBits = TWOSTOPBITS;
  dcb.wReserved = 0;
  dcb.XonLim = 128;
  dcb.XoffLim = 128;
  dcb.XonChar = 0x11;
  dcb.XoffChar = 0x13;
  dcb.ErrorChar = 0;
  setFlagWord(dcb);
}

} // namespace

namespace portsys {

PortHandle* openPort(const std::string& name, const LineSettings& line) {
  const std::string path = "\\\\.\\" + name;
  HANDLE handle = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    consolePrint("Error opening port\r\n", name);
    return nullptr;
  }
  PortHandle* port = new PortHandle{handle, DCB{}, COMMTIMEOUTS{}};
  if (!GetCommState(handle, &port->dcb)) return fail(port, "Error opening port: GetCommState\r\n", name);
  if (!portsys::stopBitsFit(line, name)) return fail(port, nullptr, name);
  port->dcb.DCBlength = sizeof(DCB);
  GetCommState(handle, &port->dcb);
  applyLine(port->dcb, line);
  if (!SetCommState(handle, &port->dcb)) return fail(port, "Error opening port: SetCommState\r\n", name);
  if (!GetCommTimeouts(handle, &port->timeouts)) return fail(port, "Error opening port: GetCommTimeouts\r\n", name);
  // A read returns when its buffer is full or 100 ms pass between two bytes.
  port->timeouts.ReadIntervalTimeout = 100;
  port->timeouts.ReadTotalTimeoutMultiplier = 0;
  port->timeouts.ReadTotalTimeoutConstant = 0;
  port->timeouts.WriteTotalTimeoutMultiplier = 0;
  port->timeouts.WriteTotalTimeoutConstant = 0;
  if (!SetCommTimeouts(handle, &port->timeouts)) return fail(port, "Error opening port: SetCommTimeouts\r\n", name);
  return port;
}

void closePort(PortHandle* port) {
  if (port == nullptr) return;
  CloseHandle(port->handle);
  delete port;
}

bool lineLost(PortHandle* port) { return port->lost.load(); }

std::uint32_t queued(PortHandle* port) {
  if (port->lost.load()) return 0;
  DWORD errors = 0;
  COMSTAT status{};
  if (!ClearCommError(port->handle, &errors, &status)) {
    noteError(port);
    return 0;
  }
  return status.cbInQue;
}

// The communications API has no cheap wait for input without overlapped I/O, which
// the port is not opened for: sleep, then look.
bool waitReadable(PortHandle* port, std::uint32_t micros) {
  std::this_thread::sleep_for(std::chrono::microseconds(micros));
  return queued(port) != 0;
}

// With no byte at all ReadFile would wait for ever: callers read only when bytes are queued.
bool readSome(PortHandle* port, std::uint8_t* buffer, std::uint32_t size, std::uint32_t& got) {
  DWORD count = 0;
  const BOOL ok = ReadFile(port->handle, buffer, size, &count, nullptr);
  if (!ok) noteError(port);
  got = ok ? count : 0;
  return ok != FALSE;
}

WriteResult writeAll(PortHandle* port, const std::uint8_t* data, std::size_t length) {
  DWORD written = 0;
  if (!WriteFile(port->handle, data, static_cast<DWORD>(length), &written, nullptr)) {
    noteError(port);
    return WriteResult::writeFailed;
  }
  if (!FlushFileBuffers(port->handle)) {
    noteError(port);
    return WriteResult::flushFailed;
  }
  return WriteResult::ok;
}

void purge(PortHandle* port) {
  PurgeComm(port->handle, PURGE_RXABORT | PURGE_RXCLEAR);
  PurgeComm(port->handle, PURGE_TXABORT | PURGE_TXCLEAR);
}

} // namespace portsys
