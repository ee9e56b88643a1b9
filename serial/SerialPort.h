#pragma once
// One serial line: open with line settings, blocking and non-blocking reads, writes,
// purge, a count of waiting bytes, and the list of the machine's serial ports.
// Failures are reported as one line of console text plus a false or zero result.
//
// The class takes no lock. A user with two threads (the device session) guards the
// calls itself so that open/close never overlap a read or write.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

struct PortHandle; // the platform's open device, defined by serial_<platform>.cpp
class Rfc2217Port; // a remote port, rfc2217://HOST:PORT
namespace portsys {
struct LineSettings;
}

class SerialPort {
public:
  // Parity codes of open(): the order is alphabetical and other tables rely on it.
  enum ParityCode : std::uint32_t { ParityEven = 0, ParityMark = 1, ParityNone = 2, ParityOdd = 3, ParitySpace = 4 };
  // Stop-bit codes of open().
  enum StopCode : std::uint32_t { StopOne = 0, StopOneAndHalf = 1, StopTwo = 2 };

  SerialPort();
  explicit SerialPort(const std::string& name);
  SerialPort(const std::string& name, std::uint32_t baud);
  SerialPort(const std::string& name, std::uint32_t baud, std::uint32_t parity, std::uint8_t dataBits,
             std::uint32_t stopBits);
  // Opens the first port found on the machine.
  SerialPort(std::uint32_t baud, std::uint32_t parity, std::uint8_t dataBits, std::uint32_t stopBits);
  virtual ~SerialPort();
  SerialPort(const SerialPort&) = delete;
  SerialPort& operator=(const SerialPort&) = delete;

  // Every open first closes a port that is open. The overloads without settings use
  // the stored defaults (9600 baud, no parity, 8 data bits, one stop bit).
  bool open();
  bool open(const std::string& name);
  bool open(const std::string& name, std::uint32_t baud);
  bool open(const std::string& name, std::uint32_t baud, std::uint32_t parity, std::uint8_t dataBits,
            std::uint32_t stopBits);
  bool open(std::uint32_t baud, std::uint32_t parity, std::uint8_t dataBits, std::uint32_t stopBits);
  void close();
  bool isOpen() const { return open_.load(); }
  // True once the line was found lost (hang-up, unplug, node removed) since the last
  // open. The loss is reported once, as "Port lost: <name>"; reads and writes then
  // fail quietly. The owner closes the port (close keeps this flag; open clears it).
  bool lost() const { return lost_.load(); }
  const std::string& portName() const { return portName_; }
  // A remote port's network round trip, measured when it connected; 0 for a local port.
  std::uint32_t roundTripMicros() const;

  // Bytes waiting in the input queue; 0 when closed.
  std::uint32_t available();
  // Waits at most `micros` microseconds for input; true when a byte is queued.
  // False at once when closed.
  bool waitForInput(std::uint32_t micros);
  // Drops everything queued in both directions.
  void purge();

  // Returns 0 at once when nothing is queued; otherwise reads until size bytes have
  // come or 100 ms pass without a byte.
  std::uint32_t read(void* buffer, std::uint32_t size);
  // These wait (spinning) until a byte is queued.
  std::uint8_t readByte();
  bool readByte(std::uint8_t& out);
  // The bytes before the next LF (dropped); a CR before it is kept.
  std::string readLine();
  bool readLine(std::string& out);
  // Skips leading spaces, then the bytes up to a NUL, LF or space (dropped).
  std::string readWord();

  bool write(const void* buffer, std::size_t length);
  bool write(std::uint8_t byte);
  bool write(const char* text);
  bool write(const std::string& text);
  bool write(std::string&& text);
  bool write(int value);
  bool write(float value);
  bool write(double value);
  bool write(const std::stringstream& stream);

  // Port enumeration. listPorts replaces list with the machine's ports in the
  // system's order; findPort picks the first one (see SerialPort.cpp); printPorts
  // prints one name a line and returns the length of the scanned name list.
  void listPorts(std::vector<std::string>& list);
  bool findPort();
  std::uint32_t printPorts();

  const std::string& foundPortName() const { return foundPortName_; }
  std::uint16_t portNumber() const { return portNumber_; }

protected:
  std::uint32_t baudRate_ = 9600;
  std::uint32_t parity_ = ParityNone;
  std::uint32_t stopBits_ = StopOne;
  std::uint8_t dataBits_ = 8;

private:
  bool checkLost();
  bool waitForByte();
  bool openRemote(const portsys::LineSettings& line);
  bool readOne(std::uint8_t& byte, bool& failed);
  std::string readText(bool (*take)(std::uint8_t byte, std::string& text));
  bool writeChecked(const void* buffer, std::size_t length);

  PortHandle* handle_ = nullptr;
  std::unique_ptr<Rfc2217Port> remote_; // set instead of handle_ when the name is an rfc2217:// URL
  std::atomic<bool> open_{false};
  std::atomic<bool> lost_{false};
  std::string foundPortName_;
  std::uint16_t portNumber_ = 0;
  std::string portName_;
};
