// DeviceSession without a device (everywhere) and, on POSIX, against a device the test
// plays on a pseudo-terminal (run under TSan too); also the command line's echo check.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/Console.h"
#include "device/DeviceSession.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Lines = std::vector<std::string>;

// What the console route got, each message with the port it names. Read only while no other thread
// prints: the session's worker has ended or never prints.
struct Printed {
  Lines lines;
  ConsoleSink before = setConsoleSink([this](std::string_view text, std::string_view port) {
    lines.push_back(std::string(text) + "@" + std::string(port));
  });
  ~Printed() { setConsoleSink(before); }
};

TEST(SessionBasics, WithoutADevice) {
  Printed printed;
  EXPECT_TRUE(DeviceSession("no-such-port-for-qmload-tests").hasFailed());
  DeviceSession session(nullptr); // no wake-up callback: the worker copes without one
  EXPECT_FALSE(session.isOpen() || session.hasFailed() || session.isBusy());
  session.request(1, 2, 3, CmdWriteBlock, 0x08004000, std::vector<std::uint8_t>(300).data(), 300, 1000); // too long
  EXPECT_TRUE(!session.isBusy() && session.hasFailed());
  session.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 1);
  EXPECT_EQ(printed.lines,
            (Lines{"Error opening port\r\n@no-such-port-for-qmload-tests", "com port is not open!\r\n@"}));
  EXPECT_TRUE(session.isBusy() && session.hasFailed() && session.ticksLeft.load() == 0);
  // Unwritten once the wait is over; the worker is back in its long sleep then, and the end wakes it.
  for (int i = 0; i < 5000 && !session.requestUnwritten(); ++i) std::this_thread::sleep_for(milliseconds(1));
  EXPECT_TRUE(session.requestUnwritten());
}

} // namespace

#ifndef _WIN32
#include "device/CheckedLink.h"
#include "tests/serial/PtyPair.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::uint32_t kA = 0x00c0ffee, kB = 0x12345678, kC = 0x9abcdef0, kAt = 0x08004100;

Bytes replyFrame(std::uint8_t command, std::uint32_t id0, std::uint32_t address = kAt) {
  Bytes out(kFrameMax);
  out.resize(encodeFrame(out.data(), FrameFields{1, id0, kB, kC, command, address, 0}, nullptr));
  return out;
}

bool waitIdle(FlashLink& link) {
  const auto end = Clock::now() + std::chrono::seconds(10);
  for (link.update(); link.isBusy() && Clock::now() < end; link.update()) std::this_thread::sleep_for(milliseconds(1));
  return !link.isBusy();
}

// The test itself plays the device on the master side.
class SessionPty : public testing::TestWithParam<ReplyFraming> {
protected:
  void SetUp() override { ASSERT_TRUE(pty.ok()); }
  std::unique_ptr<DeviceSession> open() {
    auto session = std::make_unique<DeviceSession>(pty.slavePath().c_str());
    session->setFraming(GetParam());
    session->setWakeCallback([this] { ++wakes; });
    return session;
  }
  // Sends a request, checks that the device heard it, sends the reply (none when empty) and
  // waits for the end; true when it was answered.
  bool ask(FlashLink& link, std::uint8_t command, std::uint32_t timeout, const Bytes& reply) {
    link.request(kA, kB, kC, command, kAt, nullptr, 0, timeout);
    const Bytes heard = pty.receive(20);
    EXPECT_TRUE(frameCrcOk(heard.data(), heard.size()) && decodeFields(heard.data()).command == command);
    pty.send(reply);
    return waitIdle(link) && !link.hasFailed();
  }
  PtyPair pty;
  std::atomic<int> wakes{0};
  const Bytes identified = replyFrame(CmdIdentify, kA);
};

TEST_P(SessionPty, RepliesTimeOutsBaudRatesStrayAndRejectedFramesAndAHangUp) {
  auto session = open();
  // Sent before the worker's first pass: the answer waits and is taken at that pass,
  // before the one-tick time-out runs.
  EXPECT_TRUE(ask(*session, CmdIdentify, 1, identified));
  EXPECT_TRUE(session->replyLength == 24 && session->replyWord(0) == kA && session->replyWord(2) == kC &&
              wakes.load() >= 1);
  // An unanswered request ends after its ticks, each at least 1 ms, with a wake-up at
  // 50, 40, 30, 20 and 10 ticks left and one at the time-out.
  wakes = 0;
  const auto start = Clock::now();
  EXPECT_FALSE(ask(*session, CmdIdentify, 50, {}));
  EXPECT_GE(Clock::now() - start, milliseconds(50));
  EXPECT_EQ(wakes.load(), 6);
  // Two good frames a gap apart: both taken, the last one wins.
  EXPECT_TRUE(ask(*session, CmdCheckBlock, 2000, replyFrame(CmdCheckBlock, 1)));
  std::this_thread::sleep_for(milliseconds(250)); // well past the gap, also when the worker reads late
  pty.send(replyFrame(CmdCheckBlock, 2));
  std::this_thread::sleep_for(milliseconds(500));
  EXPECT_TRUE(!session->isBusy() && !session->hasFailed() && session->replyWord(0) == 2u); // busy false publishes it
  session->reopen(3, 0, 0);
  EXPECT_TRUE(pty.hostBaud() == 115200 && session->lineBaud() == 115200 && ask(*session, CmdIdentify, 500, identified));
  for (const int index : {0x050000, 0x000300, 0x000002}) { // baud, parity, stop index out of the tables
    session->failed.store(false);
    session->reopen(std::uint8_t(index >> 16), std::uint8_t(index >> 8), std::uint8_t(index));
    EXPECT_TRUE(session->hasFailed() && session->isOpen() && pty.hostBaud() == 115200); // the line is left alone
  }
  session.reset();
  session = open(); // a second session on the same port, at 9600
  EXPECT_TRUE(pty.hostBaud() == 9600 && ask(*session, CmdIdentify, 500, identified));
  // The command line's link: a reply that does not echo the request's command and address fails
  // the request (a time-out is no stray), and the repeated request gets its own answer.
  CheckedLink link(*session);
  EXPECT_FALSE(ask(link, CmdIdentify, 30, {}));
  EXPECT_FALSE(ask(link, CmdCheckBlock, 2000, replyFrame(CmdWriteBlock, 7, 0x08003F00))); // late, of another
  EXPECT_TRUE(ask(link, CmdCheckBlock, 2000, replyFrame(CmdCheckBlock, 9)));
  EXPECT_TRUE(link.strayReplies() == 1u && link.replyWord(0) == 9u);
  // A bad CRC is reported once, naming the port, and keeps the last reply; a short frame
  // fails without a word. A hang-up while a request waits is reported once, closes the
  // port and fails the request; a request after it cannot be written, and the owner is
  // woken to read it so.
  Printed printed;
  Bytes corrupt = replyFrame(CmdCheckBlock, kA);
  corrupt.back() ^= 0x5A;
  EXPECT_FALSE(ask(*session, CmdCheckBlock, 2000, corrupt)); // ended by the bad frame, not the time-out
  EXPECT_FALSE(ask(*session, CmdIdentify, 2000, {1, 2}));
  EXPECT_EQ(session->replyWord(0), 9u); // still the last good answer
  session->request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 5000);
  pty.hangUp();
  ASSERT_TRUE(waitIdle(*session));
  EXPECT_TRUE(session->hasFailed() && session->lineLost() && !session->isOpen());
  const int wakesBefore = wakes.load();
  session->request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 1);
  for (int i = 0; i < 5000 && !session->requestUnwritten(); ++i) std::this_thread::sleep_for(milliseconds(1));
  EXPECT_TRUE(session->requestUnwritten() && session->isBusy() && session->hasFailed() && wakes.load() > wakesBefore);
  session.reset();
  const std::string& port = pty.slavePath();
  EXPECT_EQ(printed.lines, (Lines{"CRC error!\n@" + port, "Port lost: " + port + "\r\n@" + port}));
}

INSTANTIATE_TEST_SUITE_P(Framing, SessionPty, testing::Values(ReplyFraming::gap, ReplyFraming::fast),
                         [](const auto& info) { return info.param == ReplyFraming::fast ? "fast" : "gap"; });

} // namespace
#endif
