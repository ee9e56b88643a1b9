// The reply receiver of the device session, driven over a real pseudo-terminal:
// one session for the whole run, one request per input, then the input's bytes
// in chunks with pauses between them (none, about 1 ms, past the fast framing's
// silence, past the 100 ms gap). Whatever the bytes, an accepted reply must be
// 3..280 bytes with a good CRC and a contiguous piece of what was sent.
//
// Input: byte 0 bit 0 picks the framing (0 fast, 1 gap); then chunks, each a
// header byte (low 6 bits: length - 1, high 2 bits: the pause before it) and its bytes.
#include "device/DeviceSession.h"
#include "device/Frame.h"
#include "tests/fuzz/FuzzSupport.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono;

struct Rig {
  int master = -1;
  int slaveProbe = -1; // our own descriptor of the slave, to flush what is left over
  DeviceSession* session = nullptr;
};

Rig& rig() {
  static Rig r = [] {
    Rig made;
    made.master = posix_openpt(O_RDWR | O_NOCTTY);
    if (made.master < 0 || grantpt(made.master) != 0 || unlockpt(made.master) != 0) {
      std::perror("pty");
      std::abort();
    }
    const std::string slave = ptsname(made.master);
    made.session = new DeviceSession(slave.c_str());
    if (!made.session->isOpen()) {
      std::fprintf(stderr, "session did not open %s\n", slave.c_str());
      std::abort();
    }
    made.slaveProbe = open(slave.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    // The worker polls about a second after the session was created.
    std::this_thread::sleep_for(milliseconds(1200));
    return made;
  }();
  return r;
}

void drainMaster(int fd) {
  uint8_t junk[512];
  const int flags = fcntl(fd, F_GETFL);
  fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  while (read(fd, junk, sizeof junk) > 0) {}
  fcntl(fd, F_SETFL, flags);
}

std::vector<uint8_t>& previousInput() {
  static std::vector<uint8_t> bytes;
  return bytes;
}

void fail(const char* what) {
  std::fprintf(stderr, "reply receiver: %s\n", what);
  std::abort();
}

bool contains(const std::vector<uint8_t>& stream, const uint8_t* piece, std::size_t n) {
  return std::search(stream.begin(), stream.end(), piece, piece + n) != stream.end();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzQuietStdout();
  rig();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  Rig& r = rig();
  DeviceSession& session = *r.session;
  session.setFraming((data[0] & 1) ? ReplyFraming::gap : ReplyFraming::fast);

  session.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 5000);
  drainMaster(r.master);

  std::vector<uint8_t> sent;
  int longPauses = 0;
  std::size_t at = 1;
  while (at < size) {
    const uint8_t head = data[at++];
    const std::size_t length = std::min<std::size_t>((head & 0x3f) + 1u, size - at);
    switch (head >> 6) {
    case 1: std::this_thread::sleep_for(microseconds(1000)); break;
    case 2: std::this_thread::sleep_for(microseconds(5000)); break;
    case 3:
      if (longPauses++ < 2) std::this_thread::sleep_for(milliseconds(110));
      break;
    default: break;
    }
    if (length > 0 && write(r.master, data + at, length) != static_cast<ssize_t>(length)) fail("pty write");
    sent.insert(sent.end(), data + at, data + at + length);
    at += length;
  }

  // A frame ends at the latest 100 ms after its last byte.
  const auto deadline = steady_clock::now() + milliseconds(250);
  while (session.busy.load() && steady_clock::now() < deadline) std::this_thread::sleep_for(milliseconds(1));

  if (!session.busy.load() && !session.failed.load()) {
    const std::uint32_t n = session.replyLength;
    if (n < 3 || n > kFrameMax) fail("accepted reply of impossible length");
    if (!frameCrcOk(session.reply.data(), n)) fail("accepted reply with a bad CRC");
    // The previous input's bytes count too: on a badly loaded machine the worker
    // may still have been inside a frame when this input began.
    std::vector<uint8_t> recent = previousInput();
    recent.insert(recent.end(), sent.begin(), sent.end());
    if (!contains(recent, session.reply.data(), n)) fail("accepted reply is not a piece of the bytes sent");
  }
  previousInput() = sent;

  // Little of this input may reach the next one: when nothing ended the request,
  // the worker may be inside a frame, which ends within the 100 ms gap.
  if (session.busy.load()) std::this_thread::sleep_for(milliseconds(110));
  tcflush(r.slaveProbe, TCIFLUSH);
  drainMaster(r.master);
  return 0;
}
