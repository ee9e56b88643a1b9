// DeviceSession without a device (everywhere) and, on POSIX, against a small device
// on a pseudo-terminal; also the command line's echo check over a real session.
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
constexpr std::uint32_t kA = 0x00c0ffee, kB = 0x12345678, kC = 0x9abcdef0;

// What the console route got, each message with the port it names (thread-safe).
struct Printed {
  std::mutex mutex;
  std::vector<std::string> lines;
  ConsoleSink before = setConsoleSink([this](std::string_view text, std::string_view port) {
    std::lock_guard<std::mutex> lock(mutex);
    lines.push_back(std::string(text) + "@" + std::string(port));
  });
  ~Printed() { setConsoleSink(before); }
};

[[maybe_unused]] bool waitIdle(FlashLink& link) {
  const auto end = Clock::now() + std::chrono::seconds(10);
  for (link.update(); link.isBusy(); link.update()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

TEST(SessionBasics, WithoutADevice) {
  {
    Printed printed;
    DeviceSession missing("no-such-port-for-qmload-tests");
    EXPECT_TRUE(!missing.isOpen() && missing.hasFailed());
    EXPECT_EQ(printed.lines, std::vector<std::string>{"Error opening port\r\n@no-such-port-for-qmload-tests"});
  }
  auto session = std::make_unique<DeviceSession>(nullptr);
  EXPECT_FALSE(session->isOpen() || session->hasFailed() || session->isBusy());
  {
    Printed printed;
    std::vector<std::uint8_t> data(300, 1);
    session->request(1, 2, 3, CmdWriteBlock, 0x08004000, data.data(), 300, 1000); // does not fit a frame
    EXPECT_TRUE(!session->isBusy() && session->hasFailed());
    for (const int index : {0x050000, 0x000300, 0x000002, 0xFFFFFF}) { // baud, parity, stop index out of the tables
      session->failed.store(false);
      session->reopen(std::uint8_t(index >> 16), std::uint8_t(index >> 8), std::uint8_t(index));
      EXPECT_TRUE(session->hasFailed() && !session->isOpen());
    }
    EXPECT_TRUE(printed.lines.empty());
    session->request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 1);
    EXPECT_EQ(printed.lines, std::vector<std::string>{"com port is not open!\r\n@"});
    EXPECT_TRUE(session->isBusy() && session->hasFailed() && session->ticksLeft.load() == 0);
  }
  const std::uint8_t frame[] = {1, 0xEE, 0xFF, 0xC0, 0x00, 0x78, 0x56, 0x34, 0x12, 0xF0, 0xDE, 0xBC, 0x9A};
  std::copy(std::begin(frame), std::end(frame), session->reply.begin());
  EXPECT_TRUE(session->replyWord(0) == kA && session->replyWord(1) == kB && session->replyWord(2) == kC &&
              session->replyWord(3) == 0);
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
  FrameFields f{1, id0, kB, kC, command, address, 0};
  std::vector<std::uint8_t> out(kFrameMax);
  out.resize(encodeFrame(out.data(), f, nullptr));
  return out;
}

// A device on the master side: answers each request heard at its own baud rate
// (others are noise to it) by echoing command and address with its identity.
class Responder {
public:
  enum class Mode { answer, silent, corrupt, twoBytes, twoReplies };
  explicit Responder(PtyPair& pty) : pty_(pty) {}
  ~Responder() {
    stop_ = true;
    thread_.join();
  }
  std::vector<std::vector<std::uint8_t>> requests() {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
  }
  std::atomic<Mode> mode{Mode::answer};
  std::atomic<std::uint32_t> baud{9600};
  std::atomic<int> ignored{0};

private:
  void run() {
    for (std::vector<std::uint8_t> got; !stop_;) {
      const std::vector<std::uint8_t> more = pty_.receive(20);
      if (more.empty() || got.size() > kFrameMax) got.clear(); // a pause ends what was not a request
      got.insert(got.end(), more.begin(), more.end());
      if (got.size() < kFrameHeader + 2 || !frameCrcOk(got.data(), got.size())) continue;
      const std::vector<std::uint8_t> request = std::exchange(got, {});
      if (pty_.hostBaud() != baud) {
        ++ignored;
        continue;
      }
      {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(request);
      }
      const FrameFields asked = decodeFields(request.data());
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
  std::mutex mutex_;
  std::vector<std::vector<std::uint8_t>> requests_;
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
  static bool ask(DeviceSession& s, std::uint8_t command, std::uint32_t timeout, const std::uint8_t* data = nullptr) {
    s.request(kA, kB, kC, command, 0x08004100, data, data ? 256 : 0, timeout);
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
  EXPECT_FALSE(session->hasFailed());
  EXPECT_TRUE(session->replyLength == 24 && session->reply[0] == 1 && session->replyWord(0) == kA &&
              session->replyWord(2) == kC && session->ticksLeft.load() == 0 && wakes.load() >= 1);
  std::vector<std::uint8_t> identify(22, 0);
  identify.insert(identify.end(), {0x5B, 0x0B});
  ASSERT_EQ(device.requests().size(), 1u);
  EXPECT_EQ(device.requests()[0], identify);

  std::vector<std::uint8_t> block(256);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(255 - i);
  EXPECT_TRUE(ask(*session, CmdWriteBlock, 3000, block.data()));
  ASSERT_EQ(device.requests().back().size(), 280u);
  EXPECT_TRUE(std::equal(block.begin(), block.end(), device.requests().back().begin() + kOffData));
  EXPECT_EQ(decodeFields(session->reply.data()).command, CmdWriteBlock);

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
  EXPECT_TRUE(session->isOpen() && pty.hostBaud() == 115200 && session->lineBaud() == 115200);
  EXPECT_TRUE(ask(*session, CmdIdentify, 500));
  session->reopen(9, 0, 0); // out of the table: the line is left alone
  EXPECT_TRUE(session->hasFailed() && session->isOpen() && pty.hostBaud() == 115200);
  device.baud = 921600;
  session->reopen(4, 0, 0); // the switch after Start: 921600 baud, 8N1
  EXPECT_EQ(pty.hostBaud(), 921600u);
  EXPECT_TRUE(ask(*session, CmdIdentify, 500));
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
  std::lock_guard<std::mutex> lock(printed.mutex);
  EXPECT_EQ(printed.lines, std::vector<std::string>{"CRC error!\n@" + pty.slavePath()});
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
    EXPECT_TRUE(session.isBusy() && session.hasFailed());
    for (int i = 0; i < 5000 && !session.requestUnwritten(); ++i) std::this_thread::sleep_for(milliseconds(1));
    EXPECT_TRUE(session.requestUnwritten() && session.isBusy() && session.hasFailed());
    EXPECT_GT(wakes.load(), wakesBefore);
  }
  std::lock_guard<std::mutex> lock(printed.mutex);
  EXPECT_EQ(printed.lines, std::vector<std::string>{"Port lost: " + pty.slavePath() + "\r\n@" + pty.slavePath()});
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
    EXPECT_EQ(link.hasFailed(), stray);
    EXPECT_EQ(link.strayReplies(), 1u);
  }
  EXPECT_EQ(link.replyWord(0), 9u);
}

} // namespace
#endif
