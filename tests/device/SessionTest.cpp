// DeviceSession without a device (everywhere) and, on POSIX, against a small device
// on a pseudo-terminal played by a thread (run under TSan too); also the command
// line's echo check over a real session.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/Console.h"
#include "device/DeviceSession.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Lines = std::vector<std::string>;
constexpr std::uint32_t kA = 0x00c0ffee, kB = 0x12345678, kC = 0x9abcdef0;

// What the console route got, each message with the port it names (thread-safe).
struct Printed {
  std::mutex mutex;
  Lines lines;
  ConsoleSink before = setConsoleSink([this](std::string_view text, std::string_view port) {
    std::lock_guard<std::mutex> lock(mutex);
    lines.push_back(std::string(text) + "@" + std::string(port));
  });
  ~Printed() { setConsoleSink(before); }
  Lines get() { return std::lock_guard<std::mutex>(mutex), lines; }
};

[[maybe_unused]] bool waitIdle(FlashLink& link) {
  const auto end = Clock::now() + std::chrono::seconds(10);
  for (link.update(); link.isBusy() && Clock::now() < end; link.update()) std::this_thread::sleep_for(milliseconds(1));
  return !link.isBusy();
}

TEST(SessionBasics, WithoutADevice) {
  Printed printed;
  EXPECT_TRUE(DeviceSession("no-such-port-for-qmload-tests").hasFailed());
  auto session = std::make_unique<DeviceSession>(nullptr);
  EXPECT_FALSE(session->isOpen() || session->hasFailed() || session->isBusy());
  std::vector<std::uint8_t> data(300, 1);
  session->request(1, 2, 3, CmdWriteBlock, 0x08004000, data.data(), 300, 1000); // does not fit a frame
  EXPECT_TRUE(!session->isBusy() && session->hasFailed());
  for (const int index : {0x050000, 0x000300, 0x000002}) { // baud, parity, stop index out of the tables
    session->failed.store(false);
    session->reopen(std::uint8_t(index >> 16), std::uint8_t(index >> 8), std::uint8_t(index));
    EXPECT_TRUE(session->hasFailed() && !session->isOpen());
  }
  session->request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 1);
  EXPECT_EQ(printed.get(),
            (Lines{"Error opening port\r\n@no-such-port-for-qmload-tests", "com port is not open!\r\n@"}));
  EXPECT_TRUE(session->isBusy() && session->hasFailed() && session->ticksLeft.load() == 0);
  std::this_thread::sleep_for(milliseconds(50)); // the worker is in its long sleep now
  const auto start = Clock::now();
  session.reset();
  EXPECT_LT(Clock::now() - start, milliseconds(1500)); // hang guard: one sleep at most
}

} // namespace

#ifndef _WIN32
#include "device/CheckedLink.h"
#include "tests/serial/PtyPair.h"

namespace {

std::vector<std::uint8_t> replyFrame(std::uint8_t command, std::uint32_t address, std::uint32_t id0) {
  std::vector<std::uint8_t> out(kFrameMax);
  out.resize(encodeFrame(out.data(), FrameFields{1, id0, kB, kC, command, address, 0}, nullptr));
  return out;
}

// A device on the master side: answers each request heard at its own baud rate
// (others are noise to it) by echoing command and address with its identity.
class Responder {
public:
  enum class Mode { answer, silent, corrupt, twoBytes, twoReplies };
  explicit Responder(PtyPair& pty) : pty_(pty) {}
  ~Responder() { stop_ = true, thread_.join(); }
  std::atomic<Mode> mode{Mode::answer};
  std::atomic<std::uint32_t> baud{9600};
  std::atomic<int> heard{0}, ignored{0};

private:
  void run() {
    for (std::vector<std::uint8_t> got; !stop_;) {
      const std::vector<std::uint8_t> more = pty_.receive(20);
      if (more.empty() || got.size() > kFrameMax) got.clear(); // a pause ends what was not a request
      got.insert(got.end(), more.begin(), more.end());
      if (got.size() < kFrameHeader + 2 || !frameCrcOk(got.data(), got.size())) continue;
      const FrameFields asked = decodeFields(std::exchange(got, {}).data());
      if (pty_.hostBaud() != baud && ++ignored) continue;
      ++heard;
      std::vector<std::uint8_t> reply = replyFrame(asked.command, asked.address, kA);
      switch (mode.load()) {
      case Mode::silent: break;
      case Mode::twoBytes: pty_.send(std::vector<std::uint8_t>{1, 2}); break;
      case Mode::corrupt: reply.back() ^= 0x5A; [[fallthrough]];
      case Mode::answer: pty_.send(reply); break;
      case Mode::twoReplies: // a gap apart: two frames, the second one last
        pty_.send(replyFrame(asked.command, asked.address, 1));
        std::this_thread::sleep_for(milliseconds(250)); // well past the gap, also when the worker reads late
        pty_.send(replyFrame(asked.command, asked.address, 2));
      }
    }
  }
  PtyPair& pty_;
  std::atomic<bool> stop_{false};
  std::thread thread_{[this] { run(); }};
};

class SessionPty : public testing::TestWithParam<ReplyFraming> {
protected:
  void SetUp() override { ASSERT_TRUE(pty.ok()); }
  std::unique_ptr<DeviceSession> open() {
    auto session = std::make_unique<DeviceSession>(pty.slavePath().c_str());
    session->setFraming(GetParam());
    session->setWakeCallback([this] { ++wakes; });
    return session;
  }
  // Sends a request and waits for its end; true when it was answered.
  static bool ask(DeviceSession& s, std::uint8_t command, std::uint32_t timeout) {
    s.request(kA, kB, kC, command, 0x08004100, nullptr, 0, timeout);
    return waitIdle(s) && !s.hasFailed();
  }
  PtyPair pty;
  Responder device{pty};
  std::atomic<int> wakes{0};
};

TEST_P(SessionPty, RequestsRepliesBaudRatesAndTimeOuts) {
  auto session = open();
  ASSERT_TRUE(session->isOpen());
  // Sent before the worker's first pass: the answer waits and is taken at that pass,
  // before the one-tick time-out runs.
  session->request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 1);
  ASSERT_TRUE(waitIdle(*session));
  EXPECT_TRUE(!session->hasFailed() && session->replyLength == 24 && session->replyWord(0) == kA &&
              session->replyWord(2) == kC && wakes.load() >= 1 && device.heard.load() == 1);
  // An unanswered request ends after its ticks, each at least 1 ms, with a wake-up at
  // 50, 40, 30, 20 and 10 ticks left and one at the time-out.
  device.mode = Responder::Mode::silent;
  wakes = 0;
  const auto start = Clock::now();
  EXPECT_FALSE(ask(*session, CmdIdentify, 50));
  EXPECT_GE(Clock::now() - start, milliseconds(50));
  EXPECT_EQ(wakes.load(), 6);
  // Two good frames a gap apart: both taken, the last one wins.
  device.mode = Responder::Mode::twoReplies;
  EXPECT_TRUE(ask(*session, CmdCheckBlock, 2000));
  std::this_thread::sleep_for(milliseconds(500));
  EXPECT_TRUE(!session->isBusy() && !session->hasFailed()); // busy, rewritten by the last frame, publishes it
  EXPECT_EQ(session->replyWord(0), 2u);
  device.mode = Responder::Mode::answer;
  device.baud = 115200; // another rate is noise until the line is reopened
  EXPECT_FALSE(ask(*session, CmdIdentify, 100));
  EXPECT_EQ(device.ignored.load(), 1);
  session->reopen(3, 0, 0);
  EXPECT_TRUE(pty.hostBaud() == 115200 && session->lineBaud() == 115200 && ask(*session, CmdIdentify, 500));
  session->reopen(9, 0, 0); // out of the table: the line is left alone
  EXPECT_TRUE(session->hasFailed() && session->isOpen() && pty.hostBaud() == 115200);
  session.reset();
  device.baud = 9600;
  EXPECT_TRUE(ask(*open(), CmdIdentify, 500)); // a second session on the same port, at 9600
}

// A bad CRC is reported once, naming the port, and keeps the last reply; a short
// frame fails without a word.
TEST_P(SessionPty, RejectedFramesFailAndOnlyABadCrcIsReported) {
  auto session = open();
  ASSERT_TRUE(ask(*session, CmdIdentify, 2000));
  Printed printed;
  device.mode = Responder::Mode::corrupt;
  EXPECT_FALSE(ask(*session, CmdCheckBlock, 2000)); // ended by the bad frame, not the time-out
  device.mode = Responder::Mode::twoBytes;
  EXPECT_FALSE(ask(*session, CmdIdentify, 2000));
  std::this_thread::sleep_for(milliseconds(50)); // room for a second message, if any
  EXPECT_EQ(printed.get(), Lines{"CRC error!\n@" + pty.slavePath()});
  EXPECT_EQ(decodeFields(session->reply.data()).command, CmdIdentify); // still the identify answer
}

INSTANTIATE_TEST_SUITE_P(Framing, SessionPty, testing::Values(ReplyFraming::gap, ReplyFraming::fast),
                         [](const auto& info) { return info.param == ReplyFraming::fast ? "fast" : "gap"; });

// A hang-up while a request waits: reported once, the port closed, the request
// failed; a request after it cannot be written, and the owner is woken to read it so.
TEST(SessionLostLine, AHangUpFailsTheRequestAndIsReportedOnce) {
  PtyPair pty;
  ASSERT_TRUE(pty.ok());
  Printed printed;
  std::atomic<int> wakes{0};
  {
    DeviceSession session(pty.slavePath().c_str());
    session.setWakeCallback([&] { ++wakes; });
    session.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 5000);
    pty.hangUp();
    ASSERT_TRUE(waitIdle(session));
    EXPECT_TRUE(session.hasFailed() && session.lineLost() && !session.isOpen());
    const int wakesBefore = wakes.load();
    session.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 1);
    for (int i = 0; i < 5000 && !session.requestUnwritten(); ++i) std::this_thread::sleep_for(milliseconds(1));
    EXPECT_TRUE(session.requestUnwritten() && session.isBusy() && session.hasFailed() && wakes.load() > wakesBefore);
  }
  EXPECT_EQ(printed.get(), Lines{"Port lost: " + pty.slavePath() + "\r\n@" + pty.slavePath()});
}

// The command line's link: a reply that does not echo the request's command and
// address is a failure, and the repeated request gets its own answer.
TEST(SessionCheckedLink, StrayReplyTimeOutAndEchoedReply) {
  PtyPair pty;
  ASSERT_TRUE(pty.ok());
  DeviceSession session(pty.slavePath().c_str());
  session.setFraming(ReplyFraming::fast);
  CheckedLink link(session);
  link.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 30);
  ASSERT_TRUE(waitIdle(link));
  EXPECT_TRUE(link.hasFailed() && link.strayReplies() == 0);                                    // nobody answered
  for (const auto& [reply, stray] : {std::pair{replyFrame(CmdWriteBlock, 0x08003F00, 7), true}, // late, of another
                                     std::pair{replyFrame(CmdCheckBlock, 0x08004000, 9), false}}) {
    link.request(1, 2, 3, CmdCheckBlock, 0x08004000, nullptr, 256, 2000);
    EXPECT_FALSE(pty.receive(200).empty());
    pty.send(reply);
    ASSERT_TRUE(waitIdle(link));
    EXPECT_TRUE(link.hasFailed() == stray && link.strayReplies() == 1u);
  }
  EXPECT_EQ(link.replyWord(0), 9u);
}

} // namespace
#endif
