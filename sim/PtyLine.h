#pragma once
// The device's end of a pseudo-terminal: the master side the simulator reads and
// writes, the slave the host opens as its serial port.
//
// The simulator keeps the slave open itself, so the host may close and reopen
// the port at will without the master ever seeing a hang-up, and so that it can
// read the host's line settings (termios belongs to the tty, not to one open
// file) before judging each chunk of bytes.
#include <cstddef>
#include <cstdint>
#include <string>

class PtyLine {
public:
  PtyLine() = default;
  PtyLine(const PtyLine&) = delete;
  PtyLine& operator=(const PtyLine&) = delete;
  ~PtyLine();

  // Creates the pty with the slave in raw mode at baud and, when link is not
  // empty, a symlink there to the slave (replacing an earlier symlink, never a
  // file). On failure returns false with a message in error.
  bool open(const std::string& link, std::uint32_t baud, std::string& error);
  // Removes the symlink if it still points at our slave, closes both ends.
  void close();
  // Closes both ends and keeps the symlink, which now leads nowhere: an unplugged
  // adapter whose name the host still holds.
  void hangUp();
  bool isOpen() const { return master_ >= 0; }

  int masterFd() const { return master_; }
  const std::string& slavePath() const { return slavePath_; }
  // The name the host should open: the link, or the slave's path.
  const std::string& port() const { return link_.empty() ? slavePath_ : link_; }

  // The speeds the host set on the line: what it sends at, what it listens at.
  std::uint32_t hostTxBaud() const;
  std::uint32_t hostRxBaud() const;

  // Reads what has arrived (non-blocking); returns the count, 0 when nothing.
  std::size_t read(std::uint8_t* buffer, std::size_t size);
  // Writes without blocking; returns how many bytes the line took (a full
  // buffer loses the rest, as an overrun UART would).
  std::size_t write(const std::uint8_t* data, std::size_t size);

private:
  int master_ = -1;
  int slave_ = -1;
  std::string slavePath_;
  std::string link_;
};

// The input and output speeds of the tty behind fd, in bits per second; false if
// they cannot be read.
bool ttySpeeds(int fd, std::uint32_t& inBaud, std::uint32_t& outBaud);
// Sets fd raw, 8N1, at baud (both directions). False if the speed is refused.
bool ttySetRaw(int fd, std::uint32_t baud);
