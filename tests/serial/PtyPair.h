#pragma once
// A pseudo-terminal for tests: the code under test opens the slave path like a
// serial device, the test plays the other end on the master. The test keeps its own
// slave descriptor open, so the line stays up between opens and its settings (the
// host's baud rate) can be read.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

class PtyPair {
public:
  PtyPair() {
    char name[256] = {};
    if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0) return;
    slavePath_ = name;
    termios t{};
    tcgetattr(slave_, &t);
    cfmakeraw(&t);
    tcsetattr(slave_, TCSANOW, &t);
  }
  ~PtyPair() {
    if (master_ >= 0) ::close(master_);
    if (slave_ >= 0) ::close(slave_);
  }
  PtyPair(const PtyPair&) = delete;
  PtyPair& operator=(const PtyPair&) = delete;

  bool ok() const { return master_ >= 0 && !slavePath_.empty(); }
  // Closes both of our ends: the line hangs up and its device node goes, as when a
  // USB adapter is pulled.
  void hangUp() {
    ::close(master_);
    ::close(slave_);
    master_ = slave_ = -1;
  }

  const std::string& slavePath() const { return slavePath_; }
  int master() const { return master_; }

  // The baud rate the host last set on the line.
  std::uint32_t hostBaud() const {
    termios t{};
    if (tcgetattr(slave_, &t) != 0) return 0;
    switch (cfgetispeed(&t)) {
    case B9600: return 9600;
    case B19200: return 19200;
    case B38400: return 38400;
    case B115200: return 115200;
    case B921600: return 921600;
    default: return 0;
    }
  }

  void send(const std::vector<std::uint8_t>& bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t n = ::write(master_, bytes.data() + done, bytes.size() - done);
      if (n <= 0) return;
      done += static_cast<std::size_t>(n);
    }
  }
  void send(const std::string& text) const { send(std::vector<std::uint8_t>(text.begin(), text.end())); }

  // What the host wrote, gathered until waitMs pass without a byte.
  std::vector<std::uint8_t> receive(int waitMs) const {
    std::vector<std::uint8_t> out;
    for (;;) {
      pollfd p{master_, POLLIN, 0};
      if (::poll(&p, 1, waitMs) <= 0 || (p.revents & POLLIN) == 0) break;
      std::uint8_t buf[512];
      const ssize_t n = ::read(master_, buf, sizeof buf);
      if (n <= 0) break;
      out.insert(out.end(), buf, buf + n);
    }
    return out;
  }

private:
  int master_ = -1;
  int slave_ = -1;
  std::string slavePath_;
};
