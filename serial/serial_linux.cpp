// Serial line on Linux: termios raw mode (with the Linux CMSPAR for mark and space
// parity), poll-based reads with a 100 ms gap, the driver's low-latency mode where
// it has one, and a lost line (hang-up, unplug) told apart from a quiet one.
#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "base/Console.h"
#include "serial/PortSystem.h"

struct PortHandle {
  int fd;
  std::atomic<bool> lost{false};
};

namespace {

// A read ends when this long passes without a byte.
constexpr int kReadGapMs = 100;

bool speedFor(std::uint32_t baud, speed_t& speed) {
  struct Entry {
    std::uint32_t baud;
    speed_t speed;
  };
  static const Entry table[] = {
      {50, B50},           {75, B75},         {110, B110},         {134, B134},         {150, B150},
      {200, B200},         {300, B300},       {600, B600},         {1200, B1200},       {1800, B1800},
      {2400, B2400},       {4800, B4800},     {9600, B9600},       {19200, B19200},     {38400, B38400},
      {57600, B57600},     {115200, B115200}, {230400, B230400},   {460800, B460800},   {500000, B500000},
      {576000, B576000},   {921600, B921600}, {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
      {2000000, B2000000},
  };
  for (const Entry& e : table) {
    if (e.baud == baud) {
      speed = e.speed;
      return true;
    }
  }
  return false;
}

constexpr tcflag_t kParityBits = PARENB | PARODD | CMSPAR;

// `driver` is c_cflag as the driver reported it, before raw mode cleared its parity.
void applyParity(termios& t, std::uint32_t parity, tcflag_t driver) {
  const tcflag_t all = kParityBits;
  switch (parity) {
  case 0: t.c_cflag = (t.c_cflag & ~all) | PARENB; break;                   // even
  case 1: t.c_cflag = (t.c_cflag & ~all) | PARENB | PARODD | CMSPAR; break; // mark
  case 2: t.c_cflag &= ~all; break;                                         // none
  case 3: t.c_cflag = (t.c_cflag & ~all) | PARENB | PARODD; break;          // odd
  case 4: t.c_cflag = (t.c_cflag & ~all) | PARENB | CMSPAR; break;          // space
  default: t.c_cflag = (t.c_cflag & ~all) | (driver & all); break;          // unknown code: the driver's setting
  }
}

void applyLine(termios& t, const portsys::LineSettings& line) {
  const tcflag_t driver = t.c_cflag;
  cfmakeraw(&t);
  t.c_cflag |= CLOCAL | CREAD;
  t.c_cflag &= ~(CRTSCTS | HUPCL);
  t.c_iflag &= ~(IXON | IXOFF | IXANY);
  t.c_cflag &= ~CSIZE;
  static const tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
  t.c_cflag |= sizes[line.dataBits - 5];
  applyParity(t, line.parity, driver);
  // Code 1 (one and a half) is only accepted with five data bits, where the line
  // sends 1.5 stop bits when CSTOPB is set.
  if (line.stopBits == 0) t.c_cflag &= ~CSTOPB;
  if (line.stopBits == 1 || line.stopBits == 2) t.c_cflag |= CSTOPB;
  t.c_cc[VMIN] = 0;
  t.c_cc[VTIME] = 0;
}

PortHandle* fail(int fd, const char* text, const std::string& name) {
  if (text != nullptr) consolePrint(text, name);
  ::close(fd);
  return nullptr;
}

// DTR and RTS off, as the line is opened on Windows. Lines without modem control
// (a pseudo-terminal) refuse the request; that is not an error.
void dropModemLines(int fd) {
  int bits = TIOCM_DTR | TIOCM_RTS;
  ioctl(fd, TIOCMBIC, &bits);
}

// USB adapters hold a short reply back until their latency timer expires (16 ms by
// default on FTDI); the low-latency flag makes the driver use 1 ms. Drivers without
// the request (and pseudo-terminals) keep what they have, silently.
void setLowLatency(int fd) {
  serial_struct info{};
  if (ioctl(fd, TIOCGSERIAL, &info) != 0 || (info.flags & ASYNC_LOW_LATENCY) != 0) return;
  info.flags |= ASYNC_LOW_LATENCY;
  ioctl(fd, TIOCSSERIAL, &info);
}

bool lostErrno(int error) { return error == EIO || error == ENXIO || error == ENODEV || error == EBADF; }

// Marks the line lost; returns false for the caller's convenience.
bool markLost(PortHandle* port) {
  port->lost.store(true);
  return false;
}

} // namespace

namespace portsys {

PortHandle* openPort(const std::string& name, const LineSettings& line) {
  // O_NONBLOCK so that opening does not wait for a carrier; cleared once configured.
  const int fd = ::open(name.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    consolePrint("Error opening port\r\n", name);
    return nullptr;
  }
  // One user of a port at a time, as on Windows: a second open while the port is
  // held fails like a missing port. (An advisory lock: other programs may ignore it.)
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) return fail(fd, "Error opening port\r\n", name);
  termios t{};
  if (tcgetattr(fd, &t) != 0) return fail(fd, "Error opening port: GetCommState\r\n", name);
  if (!portsys::stopBitsFit(line, name)) return fail(fd, nullptr, name);
  applyLine(t, line);
  speed_t speed;
  if (!speedFor(line.baud, speed) || cfsetispeed(&t, speed) != 0 || cfsetospeed(&t, speed) != 0 ||
      tcsetattr(fd, TCSANOW, &t) != 0)
    return fail(fd, "Error opening port: SetCommState\r\n", name);
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0)
    return fail(fd, "Error opening port: SetCommTimeouts\r\n", name);
  dropModemLines(fd);
  setLowLatency(fd);
  return new PortHandle{fd};
}

void closePort(PortHandle* port) {
  if (port == nullptr) return;
  ::close(port->fd);
  delete port;
}

bool lineLost(PortHandle* port) { return port->lost.load(); }

// Also where a quiet line is checked for having gone: a hang-up shows in poll, an
// unplugged adapter's node loses its last link.
std::uint32_t queued(PortHandle* port) {
  if (port->lost.load()) return 0;
  pollfd p{port->fd, POLLIN, 0};
  if (::poll(&p, 1, 0) > 0 && (p.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) return markLost(port);
  struct stat st {};
  if (fstat(port->fd, &st) != 0 || st.st_nlink == 0) return markLost(port);
  int n = 0;
  if (ioctl(port->fd, FIONREAD, &n) != 0) return lostErrno(errno) ? markLost(port) : 0;
  return n < 0 ? 0 : static_cast<std::uint32_t>(n);
}

bool waitReadable(PortHandle* port, std::uint32_t micros) {
  // These waits are a few character times long; the kernel's default timer slack
  // (50 us) would add as much again to each. Set once for the waiting thread.
  thread_local bool slackSet = false;
  if (!slackSet) {
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    slackSet = true;
  }
  if (port->lost.load()) return true;
  pollfd p{port->fd, POLLIN, 0};
  const timespec wait{static_cast<time_t>(micros / 1000000), static_cast<long>(micros % 1000000) * 1000};
  if (::ppoll(&p, 1, &wait, nullptr) <= 0) return false;
  // A hung-up line reports input for ever with nothing to read: noted here, so that
  // nobody waits on it again.
  if ((p.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) markLost(port);
  return true;
}

bool readSome(PortHandle* port, std::uint8_t* buffer, std::uint32_t size, std::uint32_t& got) {
  got = 0;
  if (port->lost.load()) return false;
  bool polledInput = false; // the last poll reported input
  while (got < size) {
    // VMIN 0 / VTIME 0: read returns what is queued, 0 when nothing is.
    const ssize_t r = ::read(port->fd, buffer + got, size - got);
    if (r > 0) {
      got += static_cast<std::uint32_t>(r);
      polledInput = false;
      continue;
    }
    // Zero bytes right after poll reported input: the line hung up.
    if (r == 0 && polledInput) return markLost(port);
    if (r < 0 && lostErrno(errno)) return markLost(port);
    if (r < 0 && errno != EINTR && errno != EAGAIN) return false;
    if (r < 0 && errno == EINTR) continue;
    pollfd p{port->fd, POLLIN, 0};
    const int ready = ::poll(&p, 1, kReadGapMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return false;
    if (ready == 0) break; // the gap that ends a read
    if ((p.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
      // What came before the hang-up is the result; the next call reports the loss.
      markLost(port);
      return got != 0;
    }
    polledInput = true;
  }
  return true;
}

WriteResult writeAll(PortHandle* port, const std::uint8_t* data, std::size_t length) {
  std::size_t done = 0;
  while (done < length) {
    const ssize_t w = ::write(port->fd, data + done, length - done);
    if (w < 0 && errno == EINTR) continue;
    if (w < 0 && lostErrno(errno)) markLost(port);
    if (w < 0) return WriteResult::writeFailed;
    done += static_cast<std::size_t>(w);
  }
  if (tcdrain(port->fd) != 0) {
    if (lostErrno(errno)) markLost(port);
    return WriteResult::flushFailed;
  }
  return WriteResult::ok;
}

void purge(PortHandle* port) {
  tcflush(port->fd, TCIFLUSH);
  tcflush(port->fd, TCOFLUSH);
}

} // namespace portsys
