// DeviceSession against a small device on a pseudo-terminal.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/Console.h"
#include "device/DeviceSession.h"
#include "tests/device/PtyResponder.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Waits (bounded) until the outstanding request has ended.
bool waitIdle(const DeviceSession& session) {
  const auto end = Clock::now() + std::chrono::seconds(10);
  while (session.isBusy()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

void identify(DeviceSession& session, std::uint32_t timeout) {
  session.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, timeout);
}

class SessionPty : public testing::Test {
protected:
  void SetUp() override { ASSERT_TRUE(pty.ok()); }
  std::unique_ptr<DeviceSession> open(ReplyFraming framing = ReplyFraming::gap) {
    auto session = std::make_unique<DeviceSession>(pty.slavePath().c_str());
    session->setFraming(framing);
    session->setWakeCallback([this] { ++wakes; });
    return session;
  }
  PtyPair pty;
  PtyResponder device{pty, 9600};
  std::atomic<int> wakes{0};
};

TEST_F(SessionPty, IdentifyIsAnsweredWithTheDeviceIdentity) {
  auto session = open();
  ASSERT_TRUE(session->isOpen());
  EXPECT_EQ(pty.hostBaud(), 9600u);
  // Sent before the worker's first pass: the answer waits in the queue and is taken
  // at that pass, before the one-tick time-out runs.
  identify(*session, 1);
  ASSERT_TRUE(waitIdle(*session));
  EXPECT_FALSE(session->hasFailed());
  EXPECT_EQ(session->replyLength, 24u);
  EXPECT_EQ(session->reply[0], 1);
  EXPECT_EQ(session->replyWord(0), 0x00c0ffeeu);
  EXPECT_EQ(session->replyWord(1), 0x12345678u);
  EXPECT_EQ(session->replyWord(2), 0x9abcdef0u);
  EXPECT_GE(wakes.load(), 1);
  EXPECT_EQ(session->ticksLeft.load(), 0u);

  const auto sent = device.requests();
  ASSERT_EQ(sent.size(), 1u);
  std::vector<std::uint8_t> expected(22, 0);
  expected.push_back(0x5B);
  expected.push_back(0x0B);
  EXPECT_EQ(sent[0], expected);
}

TEST_F(SessionPty, WriteBlockSendsTheWholeFrame) {
  auto session = open();
  std::vector<std::uint8_t> block(256);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(255 - i);
  session->request(1, 2, 3, CmdWriteBlock, 0x08004100, block.data(), 256, 3000);
  ASSERT_TRUE(waitIdle(*session));
  EXPECT_FALSE(session->hasFailed());
  const auto sent = device.requests();
  ASSERT_EQ(sent.size(), 1u);
  ASSERT_EQ(sent[0].size(), 280u);
  EXPECT_TRUE(std::equal(block.begin(), block.end(), sent[0].begin() + kOffData));
  EXPECT_EQ(decodeFields(session->reply.data()).address, 0x08004100u);
  EXPECT_EQ(decodeFields(session->reply.data()).command, CmdWriteBlock);
}

TEST_F(SessionPty, AnotherBaudRateIsNoiseUntilTheLineIsReopened) {
  device.baud.store(115200);
  auto session = open();
  identify(*session, 100);
  ASSERT_TRUE(waitIdle(*session));
  EXPECT_TRUE(session->hasFailed());
  EXPECT_EQ(device.ignored.load(), 1);

  session->reopen(3, 0, 0);
  EXPECT_TRUE(session->isOpen());
  EXPECT_EQ(pty.hostBaud(), 115200u);
  EXPECT_EQ(session->lineBaud(), 115200u);
  identify(*session, 500);
  ASSERT_TRUE(waitIdle(*session));
  EXPECT_FALSE(session->hasFailed());
  EXPECT_EQ(session->replyWord(2), 0x9abcdef0u);

  // The switch after a start command: 921600 baud, 8N1.
  device.baud.store(921600);
  session->reopen(4, 0, 0);
  EXPECT_EQ(pty.hostBaud(), 921600u);
  identify(*session, 500);
  ASSERT_TRUE(waitIdle(*session));
  EXPECT_FALSE(session->hasFailed());
}

TEST_F(SessionPty, ReopenOutOfTheTablesLeavesTheLineAlone) {
  auto session = open();
  session->reopen(9, 0, 0);
  EXPECT_TRUE(session->hasFailed());
  EXPECT_TRUE(session->isOpen());
  EXPECT_EQ(pty.hostBaud(), 9600u);
}

TEST_F(SessionPty, TwoSessionsInARowUseTheSamePort) {
  for (int round = 0; round < 2; ++round) {
    auto session = open();
    ASSERT_TRUE(session->isOpen()) << "round " << round;
    identify(*session, 500);
    ASSERT_TRUE(waitIdle(*session));
    EXPECT_FALSE(session->hasFailed()) << "round " << round;
  }
  EXPECT_EQ(device.requests().size(), 2u);
}

// How the session acts on a frame the framer rejects: a bad CRC is reported once
// on the console route, naming the port, and keeps the last reply; a short frame
// fails without a word. Which frames are rejected is the framer's tests' matter.
TEST_F(SessionPty, RejectedFramesFailTheRequestAndOnlyABadCrcIsReported) {
  auto session = open();
  identify(*session, 500);
  ASSERT_TRUE(waitIdle(*session));
  ASSERT_FALSE(session->hasFailed());

  std::vector<std::pair<std::string, std::string>> printed;
  std::mutex printedMutex;
  const ConsoleSink before = setConsoleSink([&](std::string_view text, std::string_view port) {
    std::lock_guard<std::mutex> lock(printedMutex);
    printed.emplace_back(std::string(text), std::string(port));
  });
  device.mode.store(PtyResponder::Mode::corrupt);
  session->request(0x00c0ffee, 0x12345678, 0x9abcdef0, CmdCheckBlock, 0x08004000, nullptr, 256, 300);
  const bool corruptEnded = waitIdle(*session);
  const bool corruptFailed = session->hasFailed();
  device.mode.store(PtyResponder::Mode::twoBytes);
  identify(*session, 2000);
  const bool shortEnded = waitIdle(*session);
  std::this_thread::sleep_for(milliseconds(50)); // room for a second message, if any
  setConsoleSink(before);

  ASSERT_TRUE(corruptEnded && shortEnded);
  EXPECT_TRUE(corruptFailed);
  EXPECT_TRUE(session->hasFailed());
  ASSERT_EQ(printed.size(), 1u);
  EXPECT_EQ(printed[0].first, "CRC error!\n");
  EXPECT_EQ(printed[0].second, pty.slavePath());
  EXPECT_EQ(session->replyLength, 24u);
  EXPECT_EQ(decodeFields(session->reply.data()).command, CmdIdentify); // still the identify answer
}

// A line that hangs up while a request waits: reported once, the port closed, the
// request failed; a request after it cannot be written, and the owner is woken to
// read that as a failed request.
TEST(SessionLostLine, AHangUpFailsTheRequestClosesThePortAndIsReportedOnce) {
  PtyPair pty;
  ASSERT_TRUE(pty.ok());
  std::vector<std::string> printed;
  std::mutex printedMutex;
  const ConsoleSink before = setConsoleSink([&](std::string_view text, std::string_view) {
    std::lock_guard<std::mutex> lock(printedMutex);
    printed.emplace_back(text);
  });
  std::atomic<int> wakes{0};
  {
    DeviceSession session(pty.slavePath().c_str());
    session.setWakeCallback([&] { ++wakes; });
    identify(session, 5000);
    pty.hangUp();
    ASSERT_TRUE(waitIdle(session));
    EXPECT_TRUE(session.hasFailed());
    EXPECT_TRUE(session.lineLost());
    EXPECT_FALSE(session.isOpen());
    const int wakesBefore = wakes.load();
    identify(session, 1);
    EXPECT_TRUE(session.isBusy() && session.hasFailed());
    const auto end = Clock::now() + std::chrono::seconds(5);
    while (!session.requestUnwritten() && Clock::now() < end) std::this_thread::sleep_for(milliseconds(1));
    EXPECT_TRUE(session.requestUnwritten());
    EXPECT_TRUE(session.isBusy() && session.hasFailed()); // the flags stay as they were
    EXPECT_GT(wakes.load(), wakesBefore);
  }
  setConsoleSink(before);
  EXPECT_EQ(printed, std::vector<std::string>{"Port lost: " + pty.slavePath() + "\r\n"});
}

class SessionFraming : public SessionPty, public testing::WithParamInterface<ReplyFraming> {};

// The fast framing waits for input between ticks, but its ticks last as long.
TEST_P(SessionFraming, AnUnansweredRequestTimesOutAfterItsTicks) {
  device.mode.store(PtyResponder::Mode::silent);
  auto session = open(GetParam());
  const auto start = Clock::now();
  identify(*session, 50);
  ASSERT_TRUE(waitIdle(*session));
  EXPECT_TRUE(session->hasFailed());
  EXPECT_GE(Clock::now() - start, milliseconds(50)); // each tick lasts at least 1 ms
  // A wake-up at 50, 40, 30, 20 and 10 ticks left, and one at the time-out.
  EXPECT_EQ(wakes.load(), 6);
  EXPECT_EQ(device.requests().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(BothFramings, SessionFraming, testing::Values(ReplyFraming::gap, ReplyFraming::fast),
                         [](const testing::TestParamInfo<ReplyFraming>& info) {
                           return info.param == ReplyFraming::fast ? std::string("fast") : std::string("gap");
                         });

} // namespace
