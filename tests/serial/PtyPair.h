#pragma once
// A pseudo-terminal: the code under test opens the slave path like a serial device,
// the test plays the device on the master. Our own slave descriptor keeps the line
// up between opens and lets the host's baud rate be read.
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
    if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0) return;
    path_ = name;
    termios t{};
    tcgetattr(slave_, &t);
    cfmakeraw(&t);
    tcsetattr(slave_, TCSANOW, &t);
  }
  ~PtyPair() { hangUp(); }
  bool ok() const { return master_ >= 0; }
  // Closes both our ends: the line hangs up and its node goes, like a pulled adapter.
  void hangUp() {
    if (master_ >= 0) ::close(master_), ::close(slave_);
    master_ = slave_ = -1;
  }
  const std::string& slavePath() const { return path_; }
  std::uint32_t hostBaud() const {
    termios t{};
    tcgetattr(slave_, &t);
    const speed_t speeds[] = {B9600, B19200, B38400, B115200, B921600};
    const std::uint32_t bauds[] = {9600, 19200, 38400, 115200, 921600};
    for (int i = 0; i < 5; ++i)
      if (cfgetispeed(&t) == speeds[i]) return bauds[i];
    return 0;
  }
  void send(const std::vector<std::uint8_t>& bytes) const {
    for (std::size_t done = 0; done < bytes.size();) {
      const ssize_t n = ::write(master_, bytes.data() + done, bytes.size() - done);
      if (n <= 0) return;
      done += static_cast<std::size_t>(n);
    }
  }
  void send(const std::string& text) const { send(std::vector<std::uint8_t>(text.begin(), text.end())); }
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
