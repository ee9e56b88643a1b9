#include "serial/SerialPort.h"

#include <cstdio>
#include <thread>

#include "base/Console.h"
#include "serial/PortSystem.h"
#include "serial/Rfc2217Port.h"

// Each message keeps its fixed route: texts ending in "\r" go through consolePuts
// (which adds the LF), texts ending in "\r\n" through consolePrint.
namespace {

const char* const kNotOpen = "com port is not open!\r";
const char* const kDataBits = "Error opening port: The number of data bits should be from 5 to 8 bits.\r\n";

} // namespace

bool portsys::stopBitsFit(const LineSettings& line, const std::string& name) {
  if (line.stopBits == SerialPort::StopTwo && line.dataBits == 5) {
    // The data-bits text on purpose: this is the message users know for it.
    consolePrint(kDataBits, name);
    return false;
  }
  if (line.stopBits == SerialPort::StopOneAndHalf && line.dataBits >= 6) {
    consolePrint("Error opening port: Using five data bits with 2 stop bits - invalid combination,\r\n", name);
    consolePrint("as well as 6, 7 or 8 data bits with 1.5 stop bits.\r\n", name);
    return false;
  }
  return true;
}

SerialPort::SerialPort() = default;

SerialPort::SerialPort(const std::string& name) { open(name, 9600, ParityNone, 8, StopOne); }

SerialPort::SerialPort(const std::string& name, std::uint32_t baud) { open(name, baud, ParityNone, 8, StopOne); }

SerialPort::SerialPort(const std::string& name, std::uint32_t baud, std::uint32_t parity, std::uint8_t dataBits,
                       std::uint32_t stopBits) {
  open(name, baud, parity, dataBits, stopBits);
}

SerialPort::SerialPort(std::uint32_t baud, std::uint32_t parity, std::uint8_t dataBits, std::uint32_t stopBits) {
  if (findPort())
    open(std::string(foundPortName_), baud, parity, dataBits, stopBits);
  else
    consolePrint("Error: port is not found!\r\n");
}

SerialPort::~SerialPort() { close(); } // a remote connection ends with remote_

bool SerialPort::open() { return open(baudRate_, parity_, dataBits_, stopBits_); }

bool SerialPort::open(const std::string& name) { return open(name, baudRate_, parity_, dataBits_, stopBits_); }

bool SerialPort::open(const std::string& name, std::uint32_t baud) {
  return open(name, baud, parity_, dataBits_, stopBits_);
}

bool SerialPort::open(std::uint32_t baud, std::uint32_t parity, std::uint8_t dataBits, std::uint32_t stopBits) {
  close();
  if (!findPort()) {
    consolePuts("Error: port is not found!\r");
    return false;
  }
  return open(std::string(foundPortName_), baud, parity, dataBits, stopBits);
}

bool SerialPort::open(const std::string& name, std::uint32_t baud, std::uint32_t parity, std::uint8_t dataBits,
                      std::uint32_t stopBits) {
  close();
  lost_.store(false);
  if (&name != &portName_) portName_ = name;

  // A data-bit count the line cannot take is refused before the device is touched;
  // the stop-bit combinations are checked once it is open (stopBitsFit), so a
  // missing port reports only that.
  if (dataBits < 5 || dataBits > 8) {
    consolePrint(kDataBits, portName_);
    return false;
  }

  if (Rfc2217Port::isUrl(portName_)) return openRemote(portsys::LineSettings{baud, parity, dataBits, stopBits});
  remote_.reset(); // a remote connection kept by close ends here
  handle_ = portsys::openPort(portName_, portsys::LineSettings{baud, parity, dataBits, stopBits});
  if (handle_ == nullptr) return false;
  open_.store(true);
  return true;
}

// rfc2217://HOST:PORT. Reopened, the same port keeps its connection and only the
// new settings travel; a connection that has ended is not made again.
bool SerialPort::openRemote(const portsys::LineSettings& line) {
  if (!portsys::stopBitsFit(line, portName_)) return false;
  if (remote_ == nullptr || remote_->url() != portName_)
    remote_.reset(Rfc2217Port::open(portName_, line));
  else if (!remote_->configure(line))
    return false;
  if (remote_ == nullptr) return false;
  open_.store(true);
  return true;
}

std::uint32_t SerialPort::roundTripMicros() const { return remote_ ? remote_->roundTripMicros() : 0; }

void SerialPort::close() {
  if (!open_.load()) return;
  open_.store(false);
  // A remote port keeps its connection until it is opened elsewhere or destroyed,
  // so that a reopen at another baud rate costs one acknowledged setting.
  if (remote_ != nullptr) return;
  portsys::closePort(handle_);
  handle_ = nullptr;
}

// Reports a lost line once, when the backend first says so. The port stays open
// until its owner closes it (another thread may be using the handle).
bool SerialPort::checkLost() {
  if (lost_.load()) return true;
  if (!open_.load() || !(remote_ ? remote_->ended() : portsys::lineLost(handle_))) return false;
  if (!lost_.exchange(true)) consolePrint("Port lost: " + portName_ + "\r\n", portName_);
  return true;
}

std::uint32_t SerialPort::available() {
  if (!open_.load() || lost_.load()) return 0;
  const std::uint32_t n = remote_ ? remote_->queued() : portsys::queued(handle_);
  checkLost();
  return n;
}

bool SerialPort::waitForInput(std::uint32_t micros) {
  if (!open_.load() || lost_.load()) return false;
  const bool readable = remote_ ? remote_->waitReadable(micros) : portsys::waitReadable(handle_, micros);
  return !checkLost() && readable;
}

void SerialPort::purge() {
  if (open_.load()) remote_ ? remote_->purge() : portsys::purge(handle_);
}

// After a lost line, reads and writes fail without a message of their own until
// the next open: the loss was reported once.
std::uint32_t SerialPort::read(void* buffer, std::uint32_t size) {
  if (lost_.load()) return 0;
  if (!open_.load()) {
    consolePuts(kNotOpen, portName_);
    return 0;
  }
  if (available() == 0) return 0;
  std::uint32_t got = 0;
  auto* bytes = static_cast<std::uint8_t*>(buffer);
  if (!(remote_ ? remote_->readSome(bytes, size, got) : portsys::readSome(handle_, bytes, size, got))) {
    if (!checkLost()) consolePuts("read error\r", portName_);
    return 0;
  }
  checkLost();
  return got;
}

// Spins until a byte is queued; false when the port is (or becomes) closed.
bool SerialPort::waitForByte() {
  while (open_.load() && !lost_.load()) {
    if (available() != 0) return true;
    std::this_thread::yield();
  }
  return false;
}

// Reads one byte after waitForByte. False with failed set on a read error, false
// alone when the read brought nothing.
bool SerialPort::readOne(std::uint8_t& byte, bool& failed) {
  std::uint32_t got = 0;
  failed = !(remote_ ? remote_->readSome(&byte, 1, got) : portsys::readSome(handle_, &byte, 1, got));
  return !failed && got == 1;
}

std::uint8_t SerialPort::readByte() {
  if (!open_.load()) {
    consolePuts(kNotOpen, portName_);
    return 0;
  }
  if (!waitForByte()) return 0;
  std::uint8_t byte = 0;
  bool failed = false;
  if (!readOne(byte, failed)) {
    if (failed) consolePuts("read error\r", portName_);
    return 0;
  }
  return byte;
}

bool SerialPort::readByte(std::uint8_t& out) {
  out = readByte();
  return true;
}

// Gathers bytes until `take` says stop (it returns false) or the port closes;
// `take` decides what a byte adds. Text reads report on the formatted route.
std::string SerialPort::readText(bool (*take)(std::uint8_t byte, std::string& text)) {
  std::string text;
  if (!open_.load()) {
    consolePrint("com port is not open!\r\n", portName_);
    return text;
  }
  while (waitForByte()) {
    std::uint8_t byte = 0;
    bool failed = false;
    if (!readOne(byte, failed)) {
      if (!failed) continue;
      consolePrint("read error\r\n", portName_);
      break;
    }
    if (!take(byte, text)) break;
  }
  return text;
}

// All bytes before the first LF; the LF is dropped, a CR kept.
std::string SerialPort::readLine() {
  return readText([](std::uint8_t byte, std::string& line) {
    if (byte == '\n') return false;
    line.push_back(static_cast<char>(byte));
    return true;
  });
}

bool SerialPort::readLine(std::string& out) {
  out = readLine();
  return true;
}

// Leading spaces skipped, then bytes up to a NUL, LF or space, which is dropped.
std::string SerialPort::readWord() {
  return readText([](std::uint8_t byte, std::string& word) {
    if (byte == ' ' && word.empty()) return true;
    if (byte == 0 || byte == '\n' || byte == ' ') return false;
    word.push_back(static_cast<char>(byte));
    return true;
  });
}

bool SerialPort::writeChecked(const void* buffer, std::size_t length) {
  if (lost_.load()) return false;
  if (!open_.load()) {
    consolePuts(kNotOpen, portName_);
    return false;
  }
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  const portsys::WriteResult result =
      remote_ ? remote_->writeAll(bytes, length) : portsys::writeAll(handle_, bytes, length);
  if (result != portsys::WriteResult::ok && checkLost()) return false;
  switch (result) {
  case portsys::WriteResult::writeFailed: consolePuts("write error\r", portName_); return false;
  case portsys::WriteResult::flushFailed: consolePuts("write error: FlushFileBuffers\r", portName_); return false;
  case portsys::WriteResult::ok: break;
  }
  return true;
}

bool SerialPort::write(const void* buffer, std::size_t length) { return writeChecked(buffer, length); }

bool SerialPort::write(std::uint8_t byte) { return writeChecked(&byte, 1); }

bool SerialPort::write(const char* text) { return writeChecked(text, std::char_traits<char>::length(text)); }

bool SerialPort::write(const std::string& text) { return writeChecked(text.data(), text.size()); }

bool SerialPort::write(std::string&& text) { return writeChecked(text.data(), text.size()); }

bool SerialPort::write(int value) { return write(std::to_string(value)); }

bool SerialPort::write(float value) { return write(static_cast<double>(value)); }

bool SerialPort::write(double value) {
  char text[400];
  const int n = std::snprintf(text, sizeof text, "%f", value);
  return writeChecked(text, n < 0 ? 0 : static_cast<std::size_t>(n) < sizeof text ? n : sizeof text - 1);
}

bool SerialPort::write(const std::stringstream& stream) { return write(stream.str()); }
