// Serial line on Linux: termios raw mode (with the Linux CMSPAR for mark and space
// parity), poll-based reads with a 100 ms gap.
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

#include "base/Console.h"
#include "serial/PortSystem.h"

struct PortHandle {
  int fd;
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

void applyParity(termios& t, std::uint32_t parity) {
  const tcflag_t all = PARENB | PARODD | CMSPAR;
  switch (parity) {
  case 0: t.c_cflag = (t.c_cflag & ~all) | PARENB; break;                   // even
  case 1: t.c_cflag = (t.c_cflag & ~all) | PARENB | PARODD | CMSPAR; break; // mark
  case 2: t.c_cflag &= ~all; break;                                         // none
  case 3: t.c_cflag = (t.c_cflag & ~all) | PARENB | PARODD; break;          // odd
  case 4: t.c_cflag = (t.c_cflag & ~all) | PARENB | CMSPAR; break;          // space
  default: break;                                                           // unknown code: keep what the driver had
  }
}

void applyLine(termios& t, const portsys::LineSettings& line) {
  cfmakeraw(&t);
  t.c_cflag |= CLOCAL | CREAD;
  t.c_cflag &= ~(CRTSCTS | HUPCL);
  t.c_iflag &= ~(IXON | IXOFF | IXANY);
  t.c_cflag &= ~CSIZE;
  static const tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
  t.c_cflag |= sizes[line.dataBits - 5];
  applyParity(t, line.parity);
  // Code 1 (one and a half) is only accepted with five data bits, where the line
  // sends 1.5 stop bits when CSTOPB is set.
  if (line.stopBits == 0) t.c_cflag &= ~CSTOPB;
  if (line.stopBits == 1 || line.stopBits == 2) t.c_cflag |= CSTOPB;
  t.c_cc[VMIN] = 0;
  t.c_cc[VTIME] = 0;
}

PortHandle* fail(int fd, const char* text, const std::string& name) {
  consolePrint(text, name);
  ::close(fd);
  return nullptr;
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
  applyLine(t, line);
  speed_t speed;
  if (!speedFor(line.baud, speed) || cfsetispeed(&t, speed) != 0 || cfsetospeed(&t, speed) != 0 ||
      tcsetattr(fd, TCSANOW, &t) != 0)
    return fail(fd, "Error opening port: SetCommState\r\n", name);
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0)
    return fail(fd, "Error opening port: SetCommTimeouts\r\n", name);
  return new PortHandle{fd};
}

void closePort(PortHandle* port) {
  if (port == nullptr) return;
  ::close(port->fd);
  delete port;
}

std::uint32_t queued(PortHandle* port) {
  int n = 0;
  if (ioctl(port->fd, FIONREAD, &n) != 0 || n < 0) return 0;
  return static_cast<std::uint32_t>(n);
}

bool waitReadable(PortHandle* port, std::uint32_t micros) {
  // These waits are a few character times long; the kernel's default timer slack
  // (50 us) would add as much again to each. Set once for the waiting thread.
  thread_local bool slackSet = false;
  if (!slackSet) {
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    slackSet = true;
  }
  pollfd p{port->fd, POLLIN, 0};
  const timespec wait{static_cast<time_t>(micros / 1000000), static_cast<long>(micros % 1000000) * 1000};
  return ::ppoll(&p, 1, &wait, nullptr) > 0;
}

bool readSome(PortHandle* port, std::uint8_t* buffer, std::uint32_t size, std::uint32_t& got) {
  got = 0;
  while (got < size) {
    // VMIN 0 / VTIME 0: read returns what is queued, 0 when nothing is.
    const ssize_t r = ::read(port->fd, buffer + got, size - got);
    if (r > 0) {
      got += static_cast<std::uint32_t>(r);
      continue;
    }
    if (r < 0 && errno != EINTR && errno != EAGAIN) return false;
    if (r < 0 && errno == EINTR) continue;
    pollfd p{port->fd, POLLIN, 0};
    const int ready = ::poll(&p, 1, kReadGapMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return false;
    if (ready == 0) break; // the gap that ends a read
    if ((p.revents & POLLIN) == 0) {
      // Hang-up or error with nothing to read: what came so far is the result.
      return got != 0;
    }
  }
  return true;
}

WriteResult writeAll(PortHandle* port, const std::uint8_t* data, std::size_t length) {
  std::size_t done = 0;
  while (done < length) {
    const ssize_t w = ::write(port->fd, data + done, length - done);
    if (w < 0 && errno == EINTR) continue;
    if (w < 0) return WriteResult::writeFailed;
    done += static_cast<std::size_t>(w);
  }
  if (tcdrain(port->fd) != 0) return WriteResult::flushFailed;
  return WriteResult::ok;
}

void purge(PortHandle* port) {
  tcflush(port->fd, TCIFLUSH);
  tcflush(port->fd, TCOFLUSH);
}

} // namespace portsys
