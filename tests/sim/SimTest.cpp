// The simulated device: its model, the request parser, the line's timing and faults.
#include <gtest/gtest.h>

#include <functional>

#include "base/Wire.h"
#include "sim/RequestParser.h"
#include "device/Frame.h"
#include "sim/SimDevice.h"

namespace {

std::vector<std::uint8_t> request(std::uint8_t command, DeviceIdentity ids = {0, 0, 0}, std::uint32_t address = 0,
                                  std::uint32_t length = 0, const std::uint8_t* data = nullptr) {
  FrameFields f;
  f.id0 = ids.id0, f.id1 = ids.id1, f.id2 = ids.id2, f.command = command, f.address = address, f.length = length;
  std::vector<std::uint8_t> out(kFrameMax);
  out.resize(encodeFrame(out.data(), f, data));
  return out;
}

const DeviceIdentity kMe{}; // 0x00c0ffee-12345678-9abcdef0
const std::vector<std::uint8_t> data = [] {
  std::vector<std::uint8_t> v(256);
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<std::uint8_t>(3 + i * 7);
  return v;
}();

std::int64_t wire(std::size_t bytes, std::uint32_t baud = 115200) { return wireTime(bytes, baud).count(); }

} // namespace

TEST(SimDeviceModel, AnswersItsOwnIdentityOrAnIdentifyBroadcastAndTellsWritableBlocks) {
  DeviceModel m;
  const auto send = [&](const std::vector<std::uint8_t>& f) { return m.handle(f.data(), f.size()); };
  const DeviceAnswer id = send(request(CmdIdentify));
  ASSERT_EQ(id.reply.size(), 24u);
  const std::vector<std::uint8_t> head = {0x01, 0xee, 0xff, 0xc0, 0x00, 0x78, 0x56, 0x34, 0x12, 0xf0, 0xde, 0xbc, 0x9a};
  EXPECT_TRUE(std::equal(head.begin(), head.end(), id.reply.begin()) && frameCrcOk(id.reply.data(), 24));
  auto bad = request(CmdIdentify);
  bad[23] ^= 1;
  FrameFields reply;
  reply.frameType = 1; // a reply, e.g. another device's, is not a request
  std::vector<std::uint8_t> replyFrame(24);
  encodeFrame(replyFrame.data(), reply, nullptr);
  for (const auto& ignored : {bad, replyFrame, request(5, kMe), request(CmdCheckBlock, {0, 0, 0}, 0x08004000, 256),
                              request(CmdIdentify, {1, 2, 4})})
    EXPECT_FALSE(send(ignored).answered);
  EXPECT_FALSE(m.handle(bad.data(), 10).answered);
  // Check-block: 1 for a block wholly inside the writable flash 0x08004000..0x0803FFFF.
  const std::uint32_t blocks[] = {0x08004000, 0x0803FF00, 0x08000000, 0x08003F80, 0x0803FF80, 0x20000000, 0xFFFFFF80};
  for (const std::uint32_t address : blocks) {
    const std::uint32_t writable = address == blocks[0] || address == blocks[1];
    const DeviceAnswer a = send(request(CmdCheckBlock, kMe, address, 256));
    const FrameFields f = decodeFields(a.reply.data());
    EXPECT_TRUE(a.answered && f.command == CmdCheckBlock && f.address == address && f.length == 256 &&
                f.id1 == kMe.id1);
    EXPECT_EQ(f.id0, writable) << std::hex << address;
  }
}

TEST(SimDeviceModel, WritesLandInWritableFlashStartErasesAndFinishReturnsToOwnSpeed) {
  DeviceModel m(kMe, 38400);
  const auto send = [&](const std::vector<std::uint8_t>& f) { return m.handle(f.data(), f.size()); };
  EXPECT_EQ(send(request(CmdWriteBlock, kMe, 0x08003F80, 256, data.data())).reply.size(), 24u); // no data in the reply
  EXPECT_EQ(m.flash()[0x3FFF], 0xFF); // only the writable part of a block straddling the bootloader's end
  EXPECT_EQ(m.flash()[0x4000], data[0x80]);
  send(request(CmdWriteBlock, kMe, 0x08040000, 256, data.data()));
  for (std::uint8_t cmd : {CmdBlock, CmdSegment}) // acknowledged, nothing written
    EXPECT_EQ(decodeFields(send(request(cmd, kMe, 0x08004200, 0x300)).reply.data()).length, 0x300u);
  const DeviceAnswer start = send(request(CmdStart, kMe, 0, 0x1234));
  EXPECT_EQ(start.nextBaud, 921600u);
  EXPECT_EQ(m.flash(), std::vector<std::uint8_t>(kFlashSize, 0xFF));
  const DeviceAnswer finish = send(request(CmdFinish, kMe));
  EXPECT_TRUE(finish.finished);
  EXPECT_EQ(finish.nextBaud, 38400u);
}

TEST(SimRequestParser, FindsFramesSplitAtEveryByteAfterGarbageAndDropsStaleParts) {
  auto bad = request(CmdIdentify);
  bad[5] ^= 0x40;
  std::vector<std::uint8_t> stream = {0x55, 0x0b, 0xff, 0x00, 0x13};
  for (const auto& part : {bad,
                           request(CmdStart, kMe, 0, 4096),
                           {0x01, 0x02},
                           request(CmdWriteBlock, kMe, 0x08004000, 256, data.data()),
                           request(CmdFinish, kMe)})
    stream.insert(stream.end(), part.begin(), part.end());
  RequestParser p;
  std::vector<ParsedFrame> got;
  for (std::size_t i = 0; i < stream.size(); ++i)
    for (auto& f : p.feed(&stream[i], 1, static_cast<std::int64_t>(i), 50000)) got.push_back(f);
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(decodeFields(got[0].bytes.data()).command, CmdStart);
  EXPECT_EQ(got[1].bytes.size(), 280u);
  EXPECT_EQ(got[1].firstByteUs, 5 + 24 + 24 + 2);
  EXPECT_EQ(got[1].lastByteUs, 5 + 24 + 24 + 2 + 279);
  EXPECT_EQ(p.droppedBytes(), 5u + 24u + 2u);
  // A part older than the silence is dropped; within it the pieces join up.
  const auto frame = request(CmdIdentify);
  for (const std::int64_t later : {50001, 50000}) {
    RequestParser q;
    q.feed(frame.data(), 10, 0, 50000);
    EXPECT_EQ(q.feed(frame.data() + 10, 14, later, 50000).size(), later == 50000 ? 1u : 0u);
  }
  std::vector<std::uint8_t> junk(100000);
  for (std::size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<std::uint8_t>((i * 2654435761u) >> 13);
  p.feed(junk.data(), junk.size(), 0, 50000);
  EXPECT_LE(p.pending(), kFrameMax); // bounded on endless garbage
  p.reset();
  EXPECT_EQ(p.feed(frame.data(), 24, 1, 50000).size(), 1u);
}

TEST(SimDeviceLine, RepliesLeaveAfterTheRequestProcessingAndTheirOwnWireTime) {
  SimDevice d(kMe, 115200, 3, FaultPlan{});
  const auto at = [](std::vector<std::uint8_t> bytes, std::int64_t us) {
    return ParsedFrame{std::move(bytes), us, us};
  };
  EXPECT_EQ(d.onFrame(at(request(CmdIdentify), 1000000), 115200).reply.sendAtUs, 1000000 + 2 * wire(24));
  const RequestOutcome s = d.onFrame(at(request(CmdStart, kMe, 0, 512), 2000000), 115200);
  EXPECT_EQ(s.reply.baud, 115200u); // the start reply still goes out at the old speed
  EXPECT_EQ(d.currentBaud(), 921600u);
  const RequestOutcome w = d.onFrame(at(request(CmdWriteBlock, kMe, 0x08004000, 256, data.data()), 3000000), 921600);
  EXPECT_EQ(w.reply.sendAtUs, 3000000 + wire(280, 921600) + 3000 + wire(24, 921600));
  EXPECT_TRUE(d.onFrame(at(request(CmdFinish, kMe), 4000000), 921600).finished);
  EXPECT_EQ(d.currentBaud(), 115200u);
  ParsedFrame late = at(request(CmdIdentify), 5000000);
  late.lastByteUs = 5050000; // written in two pieces: the time counts from the last byte
  const std::int64_t first = d.onFrame(late, 115200).reply.sendAtUs;
  EXPECT_EQ(first, 5050000 + wire(24) + 0);
  EXPECT_EQ(d.onFrame(late, 115200).reply.sendAtUs, first + wire(24)); // one request at a time
  SimDevice slow(kMe, 115200, 0, FaultPlan{});
  slow.setTiming(3000, 16); // an erase, and an adapter holding replies to its 16 ms tick
  EXPECT_EQ(slow.onFrame(at(request(CmdIdentify), 1000000), 115200).reply.sendAtUs, 1008000);
  EXPECT_EQ(slow.onFrame(at(request(CmdStart, kMe, 0, 512), 2000000), 115200).reply.sendAtUs, 5008000);
}

TEST(SimDeviceFaults, EachFaultActsOnItsReply) {
  const std::int64_t normal = 2 * wire(24);
  const struct {
    std::function<void(FaultPlan&)> plan;
    std::vector<std::int64_t> sent; // per identify request 1 s apart: when the reply leaves after it, -1 none
    std::vector<int> clean;         // and whether its CRC checks
  } cases[] = {
      {[](FaultPlan& p) { p.dropReply = 2; }, {normal, -1, normal}, {1, 1, 1}},
      {[](FaultPlan& p) { p.dropEvery = 2; }, {normal, -1, normal, -1}, {1, 1, 1, 1}},
      {[](FaultPlan& p) { p.corruptReply = 2; }, {normal, normal, normal}, {1, 0, 1}},
      {[](FaultPlan& p) { p.lateReply = 2, p.lateMs = 40; }, {normal, normal + 40000, normal}, {1, 1, 1}},
      {[](FaultPlan& p) { p.garbageBytes = 5, p.garbageBefore = 2; }, {normal, wire(24) + wire(29), normal}, {1, 0, 1}},
  };
  for (const auto& c : cases) {
    FaultPlan plan;
    c.plan(plan);
    SimDevice d(kMe, 115200, 0, plan);
    for (std::size_t i = 0; i < c.sent.size(); ++i) {
      const std::int64_t t = 1000000 * static_cast<std::int64_t>(i);
      const RequestOutcome o = d.onFrame(ParsedFrame{request(CmdIdentify), t, t}, 115200);
      EXPECT_EQ(o.hasReply ? o.reply.sendAtUs - t : -1, c.sent[i]) << i;
      EXPECT_EQ(!o.hasReply || frameCrcOk(o.reply.bytes.data(), o.reply.bytes.size()), c.clean[i] != 0) << i;
      EXPECT_TRUE(o.reply.bytes.size() != 29 || frameCrcOk(o.reply.bytes.data() + 5, 24)); // the reply at its end
    }
  }
  FaultPlan silent;
  silent.silentAfterWrites = 1;
  SimDevice d(kMe, 115200, 0, silent);
  const auto write = request(CmdWriteBlock, kMe, 0x08004000, 256, data.data());
  EXPECT_TRUE(d.onFrame(ParsedFrame{write, 0, 0}, 115200).hasReply);
  EXPECT_TRUE(d.onFrame(ParsedFrame{write, 0, 0}, 115200).ignoredSilent);
  EXPECT_FALSE(d.onFrame(ParsedFrame{request(CmdIdentify), 0, 0}, 115200).hasReply);
}
