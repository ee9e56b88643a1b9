// The command line's link over a real session on a pseudo-terminal: a reply that
// does not echo the request's command and address is not taken as its answer.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "device/CheckedLink.h"
#include "device/DeviceSession.h"
#include "device/Frame.h"
#include "tests/serial/PtyPair.h"

namespace {

std::vector<std::uint8_t> replyFrame(std::uint8_t command, std::uint32_t address, std::uint32_t id0) {
  FrameFields f;
  f.frameType = 1;
  f.id0 = id0;
  f.id1 = 2;
  f.id2 = 3;
  f.command = command;
  f.address = address;
  f.length = 256;
  std::vector<std::uint8_t> out(kFrameMax);
  out.resize(encodeFrame(out.data(), f, nullptr));
  return out;
}

// Waits, as the sequencer's steps do, until the link has judged the outcome.
bool waitIdle(FlashLink& link) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  for (link.update(); link.isBusy(); link.update()) {
    if (std::chrono::steady_clock::now() > until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

} // namespace

TEST(SequencerLink, StrayReplyIsAFailureAndTheRepeatedRequestGetsItsOwnAnswer) {
  PtyPair pty;
  ASSERT_TRUE(pty.ok());
  DeviceSession session(pty.slavePath().c_str());
  ASSERT_TRUE(session.isOpen());
  session.setFraming(ReplyFraming::fast);
  CheckedLink link(session);

  link.request(1, 2, 3, CmdCheckBlock, 0x08004000, nullptr, 256, 2000);
  EXPECT_FALSE(pty.receive(200).empty());
  // The answer to an earlier write arrives now, late.
  pty.send(replyFrame(CmdWriteBlock, 0x08003F00, 7));
  ASSERT_TRUE(waitIdle(link));
  EXPECT_TRUE(link.hasFailed());
  EXPECT_EQ(link.strayReplies(), 1u);

  link.request(1, 2, 3, CmdCheckBlock, 0x08004000, nullptr, 256, 2000);
  EXPECT_FALSE(pty.receive(200).empty());
  pty.send(replyFrame(CmdCheckBlock, 0x08004000, 9));
  ASSERT_TRUE(waitIdle(link));
  EXPECT_FALSE(link.hasFailed());
  EXPECT_EQ(link.replyWord(0), 9u);
  EXPECT_EQ(link.strayReplies(), 1u);
}

TEST(SequencerLink, TimeOutAndEchoedReplyPassThrough) {
  PtyPair pty;
  ASSERT_TRUE(pty.ok());
  DeviceSession session(pty.slavePath().c_str());
  ASSERT_TRUE(session.isOpen());
  session.setFraming(ReplyFraming::fast);
  CheckedLink link(session);

  link.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 30);
  ASSERT_TRUE(waitIdle(link));
  EXPECT_TRUE(link.hasFailed()); // nobody answered
  EXPECT_EQ(link.strayReplies(), 0u);

  link.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 2000);
  EXPECT_FALSE(pty.receive(200).empty());
  pty.send(replyFrame(CmdIdentify, 0, 0x00c0ffee));
  ASSERT_TRUE(waitIdle(link));
  EXPECT_FALSE(link.hasFailed());
  EXPECT_EQ(link.replyWord(0), 0x00c0ffeeu);
}
