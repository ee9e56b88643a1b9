#pragma once
// A pseudo-terminal: the code under test opens the slave path as its serial device, the test plays
// the device on the master. Our own slave descriptor keeps the line up and shows the host's baud rate.
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

class PtyPair {
public:
  PtyPair() {
    char name[256] = {};
    termios raw{};
    cfmakeraw(&raw);
    cfsetspeed(&raw, B9600);
    if (openpty(&master_, &slave_, name, &raw, nullptr) == 0) path_ = name;
  }
  ~PtyPair() { hangUp(); }
  bool ok() const { return master_ >= 0; }
  // Closes both our ends: the line hangs up and its node goes, like a pulled adapter.
  void hangUp() {
    if (master_ >= 0) ::close(master_), ::close(slave_);
    master_ = slave_ = -1;
  }
  const std::string& slavePath() const { return path_; }
  // The host's line as "BAUD PARITY STOP-BITS". A pty keeps 8 data bits and no parity enable: even parity reads
  // "none", and 1.5 stop bits "2".
  std::string hostLine() const {
    termios t{};
    tcgetattr(slave_, &t);
    const std::pair<speed_t, const char*> bauds[] = {
        {B9600, "9600"}, {B19200, "19200"}, {B38400, "38400"}, {B115200, "115200"}, {B921600, "921600"}};
    std::string baud = "0";
    for (const auto& [speed, text] : bauds)
      if (cfgetispeed(&t) == speed) baud = text;
    const char* const parities[] = {"none", "odd", "space", "mark"}; // by the odd and stick flags
    return baud + " " + parities[(t.c_cflag & PARODD ? 1 : 0) + (t.c_cflag & CMSPAR ? 2 : 0)] +
           (t.c_cflag & CSTOPB ? " 2" : " 1");
  }
  std::uint32_t hostBaud() const { return std::stoul(hostLine()); }
  template <class Bytes> // a string or a byte vector
  void send(const Bytes& bytes) const {
    ssize_t n = 0;
    for (std::size_t done = 0; done < bytes.size() && (n = ::write(master_, &bytes[done], bytes.size() - done)) > 0;)
      done += static_cast<std::size_t>(n);
  }
  // What the host wrote, gathered until waitMs pass without a byte.
  std::vector<std::uint8_t> receive(int waitMs) const {
    std::vector<std::uint8_t> out;
    std::uint8_t buf[512];
    pollfd p{master_, POLLIN, 0};
    for (ssize_t n; ::poll(&p, 1, waitMs) > 0 && (n = ::read(master_, buf, sizeof buf)) > 0;)
      out.insert(out.end(), buf, buf + n);
    return out;
  }

private:
  int master_ = -1, slave_ = -1;
  std::string path_;
};
