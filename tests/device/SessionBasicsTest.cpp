// DeviceSession without a device: a null port, a port that will not open, and the
// checks that refuse a request or a reopen before anything is sent.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

#include "device/DeviceSession.h"

namespace {

using Clock = std::chrono::steady_clock;

TEST(SessionBasics, ANullPortSessionStaysClosedAndEndsPromptly) {
  auto session = std::make_unique<DeviceSession>(nullptr);
  EXPECT_FALSE(session->isOpen());
  EXPECT_FALSE(session->hasFailed());
  EXPECT_FALSE(session->isBusy());
  std::this_thread::sleep_for(std::chrono::milliseconds(50)); // the worker is in its long sleep now
  const auto start = Clock::now();
  session.reset();
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1500)); // hang guard: one sleep at most
}

TEST(SessionBasics, APortThatWillNotOpenSetsFailed) {
  testing::internal::CaptureStdout();
  DeviceSession session("no-such-port-for-qmload-tests");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error opening port\r\n");
  EXPECT_FALSE(session.isOpen());
  EXPECT_TRUE(session.hasFailed());
  EXPECT_EQ(session.portName(), "no-such-port-for-qmload-tests");
}

TEST(SessionBasics, ARequestOnAClosedPortFailsAndStaysBusy) {
  DeviceSession session(nullptr);
  testing::internal::CaptureStdout();
  session.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "com port is not open!\r\n");
  EXPECT_TRUE(session.isBusy());
  EXPECT_TRUE(session.hasFailed());
  EXPECT_EQ(session.ticksLeft.load(), 0u);
}

TEST(SessionBasics, DataThatDoesNotFitAFrameIsRefused) {
  DeviceSession session(nullptr);
  std::vector<std::uint8_t> data(300, 1);
  testing::internal::CaptureStdout();
  session.request(1, 2, 3, CmdWriteBlock, 0x08004000, data.data(), 300, 1000);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), ""); // nothing reached the port
  EXPECT_FALSE(session.isBusy());
  EXPECT_TRUE(session.hasFailed());
}

TEST(SessionBasics, ReopenRefusesIndexesOutsideTheTables) {
  DeviceSession session(nullptr);
  for (auto idx : {std::vector<int>{5, 0, 0}, {0, 3, 0}, {0, 0, 2}, {255, 255, 255}}) {
    session.failed.store(false);
    testing::internal::CaptureStdout();
    session.reopen(static_cast<std::uint8_t>(idx[0]), static_cast<std::uint8_t>(idx[1]),
                   static_cast<std::uint8_t>(idx[2]));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(session.hasFailed());
    EXPECT_FALSE(session.isOpen());
  }
}

TEST(SessionBasics, ReplyWordsAreLittleEndianIdFields) {
  DeviceSession session(nullptr);
  const std::uint8_t frame[] = {1, 0xEE, 0xFF, 0xC0, 0x00, 0x78, 0x56, 0x34, 0x12, 0xF0, 0xDE, 0xBC, 0x9A};
  std::copy(std::begin(frame), std::end(frame), session.reply.begin());
  EXPECT_EQ(session.replyWord(0), 0x00c0ffeeu);
  EXPECT_EQ(session.replyWord(1), 0x12345678u);
  EXPECT_EQ(session.replyWord(2), 0x9abcdef0u);
  EXPECT_EQ(session.replyWord(3), 0u);
}

} // namespace
