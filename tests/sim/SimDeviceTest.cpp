// The device on its line: baud switches, wire timing and each injected fault.
#include "sim/SimDevice.h"

#include "base/Wire.h"
#include "device/Frame.h"
#include "tests/sim/SimTestFrames.h"

#include <gtest/gtest.h>

namespace {

const DeviceIdentity kMe{};

std::int64_t wireTimeUs(std::size_t bytes, std::uint32_t baud) { return wireTime(bytes, baud).count(); }

ParsedFrame at(std::vector<std::uint8_t> bytes, std::int64_t us) {
  ParsedFrame f;
  f.bytes = std::move(bytes);
  f.firstByteUs = us;
  f.lastByteUs = us;
  return f;
}

RequestOutcome identify(SimDevice& d, std::uint32_t baud = 115200, std::int64_t us = 0) {
  return d.onFrame(at(request(CmdIdentify, broadcastIds(), 0, 0), us), baud);
}

TEST(SimDeviceLine, RepliesLeaveAfterRequestWireProcessingAndReplyWire) {
  SimDevice d(kMe, 115200, 3, FaultPlan{});
  const RequestOutcome id = identify(d, 115200, 1000000);
  ASSERT_TRUE(id.hasReply);
  EXPECT_EQ(id.reply.baud, 115200u);
  EXPECT_EQ(id.reply.sendAtUs, 1000000 + 2 * wireTimeUs(24, 115200));

  // Start at 115200, then a write at 921600 that costs the write time.
  const RequestOutcome s = d.onFrame(at(request(CmdStart, kMe, 0, 512), 2000000), 115200);
  ASSERT_TRUE(s.hasReply);
  EXPECT_EQ(s.reply.baud, 115200u); // the start reply still goes out at the old speed
  EXPECT_EQ(d.currentBaud(), 921600u);
  const auto data = pattern(256, 1);
  const RequestOutcome w = d.onFrame(at(request(CmdWriteBlock, kMe, 0x08004000, 256, data.data()), 3000000), 921600);
  ASSERT_TRUE(w.hasReply);
  EXPECT_EQ(w.reply.sendAtUs, 3000000 + wireTimeUs(280, 921600) + 3000 + wireTimeUs(24, 921600));
}

TEST(SimDeviceLine, AnEraseDelaysStartsAnswerAndAnAdapterHoldsRepliesToItsTimerTick) {
  SimDevice d(kMe, 115200, 0, FaultPlan{});
  d.setTiming(3000, 16);
  const RequestOutcome id = identify(d, 115200, 1000000);
  EXPECT_EQ(id.reply.sendAtUs, 1008000); // the next 16 ms tick after the reply's last byte
  const RequestOutcome s = d.onFrame(at(request(CmdStart, kMe, 0, 512), 2000000), 115200);
  EXPECT_EQ(s.reply.sendAtUs, 5008000); // 3 s of erase, then the timer's next tick
}

TEST(SimDeviceLine, BytesThatCameLateCountFromTheirRealArrival) {
  SimDevice d(kMe, 115200, 0, FaultPlan{});
  ParsedFrame f = at(request(CmdIdentify, broadcastIds(), 0, 0), 0);
  f.lastByteUs = 50000; // the host wrote the frame in two pieces, 50 ms apart
  const RequestOutcome o = d.onFrame(f, 115200);
  EXPECT_EQ(o.reply.sendAtUs, 50000 + wireTimeUs(24, 115200));
}

TEST(SimDeviceLine, OneRequestAtATime) {
  SimDevice d(kMe, 115200, 0, FaultPlan{});
  const RequestOutcome a = identify(d, 115200, 0);
  const RequestOutcome b = identify(d, 115200, 0); // arrived together with the first
  EXPECT_EQ(b.reply.sendAtUs, a.reply.sendAtUs + wireTimeUs(24, 115200));
}

TEST(SimDeviceLine, FinishReturnsToOwnSpeed) {
  SimDevice d(kMe, 19200, 0, FaultPlan{});
  d.onFrame(at(request(CmdStart, kMe, 0, 256), 0), 19200);
  EXPECT_EQ(d.currentBaud(), 921600u);
  const RequestOutcome f = d.onFrame(at(request(CmdFinish, kMe, 0, 0), 100000), 921600);
  EXPECT_TRUE(f.finished);
  EXPECT_EQ(f.reply.baud, 921600u);
  EXPECT_EQ(d.currentBaud(), 19200u);
}

TEST(SimDeviceLine, RequestsForOthersUseNoReplyNumber) {
  FaultPlan p;
  p.dropReply = 2;
  SimDevice d(kMe, 115200, 0, p);
  EXPECT_TRUE(identify(d).hasReply);
  const RequestOutcome other = d.onFrame(at(request(CmdIdentify, DeviceIdentity{7, 7, 7}, 0, 0), 0), 115200);
  EXPECT_FALSE(other.forMe);
  EXPECT_FALSE(other.hasReply);
  const RequestOutcome second = identify(d);
  EXPECT_TRUE(second.forMe);
  EXPECT_TRUE(second.fate.dropped);
  EXPECT_FALSE(second.hasReply);
  EXPECT_TRUE(identify(d).hasReply);
}

TEST(SimDeviceFaults, DropEveryKth) {
  FaultPlan p;
  p.dropEvery = 3;
  SimDevice d(kMe, 115200, 0, p);
  std::vector<bool> sent;
  for (int i = 0; i < 7; ++i) sent.push_back(identify(d).hasReply);
  EXPECT_EQ(sent, (std::vector<bool>{true, true, false, true, true, false, true}));
}

TEST(SimDeviceFaults, ADroppedStartReplyLeavesTheSpeedButTheFlashErased) {
  FaultPlan p;
  p.dropReply = 2;
  SimDevice d(kMe, 115200, 0, p);
  const auto data = pattern(256, 5);
  d.onFrame(at(request(CmdWriteBlock, kMe, 0x08004000, 256, data.data()), 0), 115200); // reply 1
  const RequestOutcome s = d.onFrame(at(request(CmdStart, kMe, 0, 256), 0), 115200);   // reply 2
  EXPECT_TRUE(s.fate.dropped);
  EXPECT_EQ(d.currentBaud(), 115200u);
  EXPECT_EQ(d.model().flash()[0x4000], 0xFF);
  d.onFrame(at(request(CmdStart, kMe, 0, 256), 0), 115200); // the host's retry
  EXPECT_EQ(d.currentBaud(), 921600u);
}

TEST(SimDeviceFaults, CorruptsTheCrcOfTheNthReplyOnly) {
  FaultPlan p;
  p.corruptReply = 2;
  SimDevice d(kMe, 115200, 0, p);
  for (int i = 1; i <= 3; ++i) {
    const RequestOutcome o = identify(d);
    ASSERT_TRUE(o.hasReply);
    ASSERT_EQ(o.reply.bytes.size(), 24u);
    EXPECT_EQ(frameCrcOk(o.reply.bytes.data(), 24), i != 2) << i;
    EXPECT_EQ(o.reply.bytes[1], 0xee); // the frame itself is intact
  }
}

TEST(SimDeviceFaults, LateReplyDelaysTheNthAndWhatQueuesBehindIt) {
  FaultPlan p;
  p.lateReply = 2;
  p.lateMs = 40;
  SimDevice d(kMe, 115200, 0, p);
  const std::int64_t normal = 2 * wireTimeUs(24, 115200);
  EXPECT_EQ(identify(d, 115200, 0).reply.sendAtUs, normal);
  EXPECT_EQ(identify(d, 115200, 1000000).reply.sendAtUs, 1000000 + normal + 40000);
  // A request that arrived meanwhile waits for the late reply to go out.
  EXPECT_EQ(identify(d, 115200, 1010000).reply.sendAtUs, 1000000 + normal + 40000 + wireTimeUs(24, 115200));
  EXPECT_EQ(identify(d, 115200, 2000000).reply.sendAtUs, 2000000 + normal);
}

TEST(SimDeviceFaults, SilentAfterNWrites) {
  FaultPlan p;
  p.silentAfterWrites = 2;
  SimDevice d(kMe, 115200, 0, p);
  const auto data = pattern(256, 11);
  EXPECT_TRUE(d.onFrame(at(request(CmdWriteBlock, kMe, 0x08004000, 256, data.data()), 0), 115200).hasReply);
  EXPECT_TRUE(identify(d).hasReply);
  EXPECT_TRUE(d.onFrame(at(request(CmdWriteBlock, kMe, 0x08004100, 256, data.data()), 0), 115200).hasReply);
  const RequestOutcome third = d.onFrame(at(request(CmdWriteBlock, kMe, 0x08004200, 256, data.data()), 0), 115200);
  EXPECT_TRUE(third.ignoredSilent);
  EXPECT_FALSE(third.hasReply);
  EXPECT_EQ(d.model().flash()[0x4200], 0xFF);
  EXPECT_FALSE(identify(d).hasReply);
  EXPECT_FALSE(d.onFrame(at(request(CmdFinish, kMe, 0, 0), 0), 115200).finished);
}

TEST(SimDeviceFaults, GarbageGoesOutJustBeforeTheChosenReply) {
  FaultPlan p;
  p.garbageBytes = 5;
  p.garbageBefore = 2;
  SimDevice d(kMe, 115200, 0, p);
  EXPECT_EQ(identify(d).reply.bytes.size(), 24u);
  const RequestOutcome o = identify(d, 115200, 1000000);
  ASSERT_EQ(o.reply.bytes.size(), 29u);
  EXPECT_FALSE(frameCrcOk(o.reply.bytes.data(), 29));    // the host sees one spoilt frame
  EXPECT_TRUE(frameCrcOk(o.reply.bytes.data() + 5, 24)); // with the real reply at its end
  EXPECT_EQ(o.reply.sendAtUs, 1000000 + wireTimeUs(24, 115200) + wireTimeUs(29, 115200));
  EXPECT_EQ(identify(d).reply.bytes.size(), 24u);
}

} // namespace
