// Line speeds through the termios2 interface, which carries them as plain
// numbers (any rate, not only the standard ones). Kept apart from <termios.h>,
// whose struct clashes with the kernel's.
#include <asm/termbits.h>
#include <sys/ioctl.h>

#include <cstdint>

bool ttySpeeds(int fd, std::uint32_t& inBaud, std::uint32_t& outBaud) {
  struct termios2 t {};
  if (ioctl(fd, TCGETS2, &t) != 0) return false;
  outBaud = t.c_ospeed;
  // An input speed of 0 means "the same as the output speed".
  inBaud = t.c_ispeed != 0 ? t.c_ispeed : t.c_ospeed;
  return true;
}

bool ttySetRaw(int fd, std::uint32_t baud) {
  struct termios2 t {};
  if (ioctl(fd, TCGETS2, &t) != 0) return false;
  t.c_iflag = 0;
  t.c_oflag = 0;
  t.c_lflag = 0;
  // The input speed bits stay 0 ("same as the output speed"): a host that sets
  // its speed through the classic termios calls changes only the output bits,
  // and must not be left with our input speed.
  t.c_cflag = static_cast<tcflag_t>((t.c_cflag & ~(CBAUD | CSIZE | PARENB | CSTOPB | CRTSCTS | (CBAUD << IBSHIFT))) |
                                    CS8 | CREAD | CLOCAL | BOTHER);
  t.c_ispeed = baud;
  t.c_ospeed = baud;
  t.c_cc[VMIN] = 1;
  t.c_cc[VTIME] = 0;
  return ioctl(fd, TCSETS2, &t) == 0;
}
