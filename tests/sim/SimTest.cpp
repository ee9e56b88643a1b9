// The simulated device: its model, the request parser, the line's timing and faults.
#include <gtest/gtest.h>

#include <numeric>
#include <tuple>

#include "base/Wire.h"
#include "device/Frame.h"
#include "sim/SimDevice.h"

std::vector<std::uint8_t> request(std::uint8_t command, DeviceIdentity ids = {0, 0, 0}, std::uint32_t address = 0,
                                  std::uint32_t length = 0, const std::uint8_t* data = nullptr) {
  std::vector<std::uint8_t> out(kFrameMax);
  out.resize(encodeFrame(out.data(), FrameFields{0, ids.id0, ids.id1, ids.id2, command, address, length}, data));
  return out;
}

const DeviceIdentity kMe{}; // 0x00c0ffee-12345678-9abcdef0
const auto data = [] {
  std::vector<std::uint8_t> v(256);
  std::iota(v.begin(), v.end(), 3);
  return v;
}();

std::int64_t wire(std::size_t bytes, std::uint32_t baud = 115200) { return wireTime(bytes, baud).count(); }

TEST(SimDeviceModel, AnswersItsIdentifyAndBlocksWritesWritableFlashAndFinishReturnsToOwnSpeed) {
  DeviceModel m(kMe, 38400);
  const auto send = [&](const std::vector<std::uint8_t>& f) { return m.handle(f.data(), f.size()); };
  const DeviceAnswer id = send(request(CmdIdentify));
  ASSERT_EQ(id.reply.size(), 24u);
  const std::vector<std::uint8_t> head = {0x01, 0xee, 0xff, 0xc0, 0x00, 0x78, 0x56, 0x34, 0x12, 0xf0, 0xde, 0xbc, 0x9a};
  EXPECT_TRUE(std::equal(head.begin(), head.end(), id.reply.begin()) && frameCrcOk(id.reply.data(), 24));
  auto bad = request(CmdIdentify);
  bad[23] ^= 1;
  // Its own reply is not a request; nor are a part of one, other commands to nobody or identities of other devices.
  for (const auto& ignored : {bad, id.reply, std::vector<std::uint8_t>(bad.begin(), bad.begin() + 10), request(5, kMe),
                              request(CmdCheckBlock, {0, 0, 0}, 0x08004000, 256), request(CmdIdentify, {1, 2, 4})})
    EXPECT_FALSE(send(ignored).answered);
  // Check-block: 1 for a block wholly inside the writable flash 0x08004000..0x0803FFFF.
  for (const auto block : {0x08004000u, 0x0803FF00u, 0x08000000u, 0x08003F80u, 0x0803FF80u, 0x20000000u, 0xFFFFFF80u}) {
    const DeviceAnswer a = send(request(CmdCheckBlock, kMe, block, 256));
    const FrameFields f = decodeFields(a.reply.data());
    EXPECT_TRUE(a.answered && f.command == CmdCheckBlock && f.address == block && f.length == 256 && f.id1 == kMe.id1);
    EXPECT_EQ(f.id0, block == 0x08004000 || block == 0x0803FF00) << std::hex << block;
  }
  EXPECT_EQ(send(request(CmdWriteBlock, kMe, 0x08003F80, 256, data.data())).reply.size(), 24u); // no data in the reply
  EXPECT_TRUE(m.flash()[0x3FFF] == 0xFF && m.flash()[0x4000] == data[0x80]); // over the bootloader's end: in part
  send(request(CmdWriteBlock, kMe, 0x08040000, 256, data.data()));
  for (std::uint8_t cmd : {CmdBlock, CmdSegment}) // acknowledged, nothing written
    EXPECT_EQ(decodeFields(send(request(cmd, kMe, 0x08004200, 0x300)).reply.data()).length, 0x300u);
  EXPECT_EQ(send(request(CmdStart, kMe, 0, 0x1234)).nextBaud, 921600u);
  EXPECT_EQ(m.flash(), std::vector<std::uint8_t>(kFlashSize, 0xFF));
  const DeviceAnswer finish = send(request(CmdFinish, kMe));
  EXPECT_TRUE(finish.finished && finish.nextBaud == 38400u);
}

TEST(SimRequestParser, FindsFramesSplitAtEveryByteAfterGarbageAndDropsStaleParts) {
  auto bad = request(CmdIdentify);
  bad[5] ^= 0x40;
  std::vector<std::uint8_t> stream = {0x55, 0x0b, 0xff, 0x00, 0x13};
  for (const auto& part : {request(CmdStart, kMe, 0, 4096), bad,
                           request(CmdWriteBlock, kMe, 0x08004000, 256, data.data()), request(CmdFinish, kMe)})
    stream.insert(stream.end(), part.begin(), part.end());
  RequestParser p;
  std::vector<ParsedFrame> got;
  for (std::size_t i = 0; i < stream.size(); ++i)
    for (auto& f : p.feed(&stream[i], 1, static_cast<std::int64_t>(i), 50000)) got.push_back(f);
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(decodeFields(got[0].bytes.data()).command, CmdStart);
  EXPECT_TRUE(got[1].bytes.size() == 280 && got[1].firstByteUs == 5 + 24 + 24 && got[1].lastByteUs == 53 + 279);
  EXPECT_EQ(p.droppedBytes(), 5u + 24u);
  const auto frame = request(CmdIdentify);
  for (const std::int64_t later : {50001, 50000}) { // a part older than the silence is dropped
    RequestParser q;
    q.feed(frame.data(), 10, 0, 50000);
    EXPECT_EQ(q.feed(frame.data() + 10, 14, later, 50000).size(), later == 50000 ? 1u : 0u);
  }
  std::vector<std::uint8_t> noise(100000);
  for (std::size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<std::uint8_t>((i * 2654435761u) >> 13);
  p.feed(noise.data(), noise.size(), 0, 50000);
  EXPECT_LE(p.pending(), kFrameMax); // bounded on endless garbage
  p.reset();
  EXPECT_EQ(p.feed(frame.data(), 24, 1, 50000).size(), 1u);
}

TEST(SimDevice, RepliesLeaveAfterTheRequestProcessingAndTheirOwnWireTimeAndEachFaultActsOnItsReply) {
  const auto at = [](std::vector<std::uint8_t> b, std::int64_t us) { return ParsedFrame{std::move(b), us, us}; };
  SimDevice d(kMe, 115200, 3, FaultPlan{});
  EXPECT_FALSE(d.onFrame(at(request(CmdStart, {1, 2, 4}), 1000000), 115200).forMe); // another device's: ignored
  EXPECT_EQ(d.onFrame(at(request(CmdStart, kMe, 0, 512), 2000000), 115200).reply.baud, 115200u); // at the old speed
  EXPECT_EQ(d.currentBaud(), 921600u);
  const RequestOutcome w = d.onFrame(at(request(CmdWriteBlock, kMe, 0x08004000, 256, data.data()), 3000000), 921600);
  EXPECT_EQ(w.reply.sendAtUs, 3000000 + wire(280, 921600) + 3000 + wire(24, 921600));
  EXPECT_TRUE(d.onFrame(at(request(CmdFinish, kMe), 4000000), 921600).finished);
  EXPECT_EQ(d.currentBaud(), 115200u);
  const ParsedFrame late{request(CmdIdentify), 5000000, 5050000}; // written in two pieces: times from the last byte
  EXPECT_EQ(d.onFrame(late, 115200).reply.sendAtUs, 5050000 + wire(24));
  EXPECT_EQ(d.onFrame(late, 115200).reply.sendAtUs, 5050000 + 2 * wire(24)); // one request at a time
  SimDevice slow(kMe, 115200, 0, FaultPlan{});
  slow.setTiming(3000, 16); // an erase, and an adapter holding replies to its 16 ms tick
  EXPECT_EQ(slow.onFrame(at(request(CmdIdentify), 1000000), 115200).reply.sendAtUs, 1008000);
  EXPECT_EQ(slow.onFrame(at(request(CmdStart, kMe, 0, 512), 2000000), 115200).reply.sendAtUs, 5008000);
  // Identify requests 1 s apart: when each reply leaves after its request (-1 none, an identify's
  // reply has no processing time), and whether its CRC checks.
  const std::int64_t normal = 2 * wire(24);
  const std::tuple<void (*)(FaultPlan&), std::vector<std::int64_t>, std::vector<int>> cases[] = {
      {[](FaultPlan& p) { p.dropReply = 2; }, {normal, -1, normal}, {1, 1, 1}},
      {[](FaultPlan& p) { p.dropEvery = 2; }, {normal, -1, normal, -1}, {1, 1, 1, 1}},
      {[](FaultPlan& p) { p.corruptReply = 2; }, {normal, normal, normal}, {1, 0, 1}},
      {[](FaultPlan& p) { p.lateReply = 2, p.lateMs = 40; }, {normal, normal + 40000, normal}, {1, 1, 1}},
      {[](FaultPlan& p) { p.garbageBytes = 5, p.garbageBefore = 2; }, {normal, wire(24) + wire(29), normal}, {1, 0, 1}},
  };
  for (const auto& [setUp, sent, clean] : cases) {
    FaultPlan plan;
    setUp(plan);
    SimDevice f(kMe, 115200, 3, plan);
    for (std::size_t i = 0; i < sent.size(); ++i) {
      const std::int64_t t = 1000000 * static_cast<std::int64_t>(i);
      const RequestOutcome o = f.onFrame(at(request(CmdIdentify), t), 115200);
      EXPECT_EQ(o.hasReply ? o.reply.sendAtUs - t : -1, sent[i]) << i;
      EXPECT_EQ(!o.hasReply || frameCrcOk(o.reply.bytes.data(), o.reply.bytes.size()), clean[i] != 0) << i;
      EXPECT_TRUE(o.reply.bytes.size() != 29 || frameCrcOk(o.reply.bytes.data() + 5, 24)); // the reply at its end
    }
  }
  SimDevice silent(kMe, 115200, 0, FaultPlan{0, 0, 0, 0, 0, /*silentAfterWrites*/ 1});
  const auto write = at(request(CmdWriteBlock, kMe, 0x08004000, 256, data.data()), 0);
  EXPECT_TRUE(silent.onFrame(write, 115200).hasReply && silent.onFrame(write, 115200).ignoredSilent);
  EXPECT_FALSE(silent.onFrame(at(request(CmdIdentify), 0), 115200).hasReply);
}
