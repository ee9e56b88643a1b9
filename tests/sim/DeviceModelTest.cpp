#include "sim/DeviceModel.h"

#include "device/Frame.h"
#include "tests/sim/SimTestFrames.h"

#include <gtest/gtest.h>

namespace {

const DeviceIdentity kMe{}; // 0x00c0ffee-12345678-9abcdef0

DeviceAnswer send(DeviceModel& m, const std::vector<std::uint8_t>& frame) {
  return m.handle(frame.data(), frame.size());
}

TEST(SimDeviceModel, IdentifyBroadcastGetsTheIdentity) {
  DeviceModel m;
  const DeviceAnswer a = send(m, request(CmdIdentify, broadcastIds(), 0, 0));
  ASSERT_TRUE(a.answered);
  const std::vector<std::uint8_t> expected = {0x01, 0xee, 0xff, 0xc0, 0x00, 0x78, 0x56, 0x34, 0x12, 0xf0, 0xde,
                                              0xbc, 0x9a, 0x00, 0,    0,    0,    0,    0,    0,    0,    0};
  ASSERT_EQ(a.reply.size(), 24u);
  EXPECT_EQ(std::vector<std::uint8_t>(a.reply.begin(), a.reply.begin() + 22), expected);
  EXPECT_TRUE(frameCrcOk(a.reply.data(), a.reply.size()));
  EXPECT_EQ(a.nextBaud, 0u);
}

TEST(SimDeviceModel, AnswersOnlyItsOwnIdentityOrAnIdentifyBroadcast) {
  DeviceModel m(DeviceIdentity{1, 2, 3}, 9600);
  EXPECT_TRUE(send(m, request(CmdIdentify, DeviceIdentity{1, 2, 3}, 0, 0)).answered);
  EXPECT_TRUE(send(m, request(CmdIdentify, broadcastIds(), 0, 0)).answered);
  EXPECT_FALSE(send(m, request(CmdIdentify, DeviceIdentity{1, 2, 4}, 0, 0)).answered);
  EXPECT_FALSE(send(m, request(CmdCheckBlock, broadcastIds(), 0x08004000, 256)).answered);
  EXPECT_FALSE(send(m, request(CmdFinish, DeviceIdentity{0, 2, 3}, 0, 0)).answered);
  EXPECT_TRUE(send(m, request(CmdCheckBlock, DeviceIdentity{1, 2, 3}, 0x08004000, 256)).answered);

  const DeviceAnswer a = send(m, request(CmdIdentify, broadcastIds(), 0, 0));
  const FrameFields f = decodeFields(a.reply.data());
  EXPECT_EQ(f.id0, 1u);
  EXPECT_EQ(f.id1, 2u);
  EXPECT_EQ(f.id2, 3u);
}

TEST(SimDeviceModel, IgnoresBadCrcRepliesAndUnknownCommands) {
  DeviceModel m;
  auto bad = request(CmdIdentify, broadcastIds(), 0, 0);
  bad[23] ^= 1;
  EXPECT_FALSE(send(m, bad).answered);

  FrameFields f;
  f.frameType = 1; // a reply, e.g. another device's, is not a request
  std::vector<std::uint8_t> reply(kFrameMax);
  reply.resize(encodeFrame(reply.data(), f, nullptr));
  EXPECT_FALSE(send(m, reply).answered);

  EXPECT_FALSE(send(m, request(5, kMe, 0, 0)).answered);
  EXPECT_FALSE(m.handle(bad.data(), 10).answered);
}

TEST(SimDeviceModel, CheckBlockTellsWhetherTheBlockIsWritable) {
  DeviceModel m;
  struct Case {
    std::uint32_t address;
    std::uint32_t id0;
  } cases[] = {
      {0x08000000, 0}, // bootloader
      {0x08003F00, 0}, // last bootloader block
      {0x08003F80, 0}, // straddles the bootloader's end
      {0x08004000, 1}, // first application block
      {0x0803FE00, 1}, // the header block of an image
      {0x0803FF00, 1}, // last block of flash
      {0x0803FF80, 0}, // runs past the end of flash
      {0x08040000, 0}, // outside flash
      {0x20000000, 0}, // RAM
      {0xFFFFFF80, 0}, // wraps around the address space
  };
  for (const Case& c : cases) {
    const DeviceAnswer a = send(m, request(CmdCheckBlock, kMe, c.address, 256));
    ASSERT_TRUE(a.answered);
    const FrameFields f = decodeFields(a.reply.data());
    EXPECT_EQ(f.id0, c.id0) << std::hex << c.address;
    EXPECT_EQ(f.id1, kMe.id1);
    EXPECT_EQ(f.id2, kMe.id2);
    EXPECT_EQ(f.command, CmdCheckBlock);
    EXPECT_EQ(f.address, c.address);
    EXPECT_EQ(f.length, 256u);
    EXPECT_EQ(a.reply.size(), 24u);
  }
}

TEST(SimDeviceModel, WritesLandInWritableFlashOnly) {
  DeviceModel m;
  const auto data = pattern(256, 3);
  const DeviceAnswer w = send(m, request(CmdWriteBlock, kMe, 0x08004100, 256, data.data()));
  ASSERT_TRUE(w.answered);
  EXPECT_EQ(w.reply.size(), 24u); // the reply echoes the length but carries no data
  EXPECT_EQ(decodeFields(w.reply.data()).length, 256u);
  EXPECT_TRUE(std::equal(data.begin(), data.end(), m.flash().begin() + 0x4100));

  // A write to the bootloader or outside flash is answered and changes nothing.
  const auto before = m.flash();
  EXPECT_TRUE(send(m, request(CmdWriteBlock, kMe, 0x08000000, 256, data.data())).answered);
  EXPECT_TRUE(send(m, request(CmdWriteBlock, kMe, 0x08040000, 256, data.data())).answered);
  EXPECT_EQ(m.flash(), before);

  // One straddling the bootloader's end writes only its writable part.
  send(m, request(CmdWriteBlock, kMe, 0x08003F80, 256, data.data()));
  EXPECT_EQ(m.flash()[0x3F7F], 0xFF);
  EXPECT_EQ(m.flash()[0x3FFF], 0xFF);
  EXPECT_EQ(m.flash()[0x4000], data[0x80]);
}

TEST(SimDeviceModel, StartErasesTheApplicationAreaAndSwitchesToTransferSpeed) {
  DeviceModel m;
  const auto data = pattern(256, 9);
  send(m, request(CmdWriteBlock, kMe, 0x08004000, 256, data.data()));
  send(m, request(CmdWriteBlock, kMe, 0x0803FF00, 256, data.data()));
  const DeviceAnswer s = send(m, request(CmdStart, kMe, 0, 0x1234));
  ASSERT_TRUE(s.answered);
  EXPECT_EQ(s.nextBaud, 921600u);
  EXPECT_EQ(decodeFields(s.reply.data()).length, 0x1234u);
  EXPECT_EQ(m.flash(), std::vector<std::uint8_t>(kFlashSize, 0xFF));
  EXPECT_EQ(m.currentBaud(), 115200u); // the caller applies the switch
}

TEST(SimDeviceModel, FinishCompletesAndReturnsToOwnSpeed) {
  DeviceModel m(DeviceIdentity{}, 38400);
  const DeviceAnswer f = send(m, request(CmdFinish, kMe, 0, 0));
  ASSERT_TRUE(f.answered);
  EXPECT_TRUE(f.finished);
  EXPECT_EQ(f.nextBaud, 38400u);
}

TEST(SimDeviceModel, BlockAndSegmentCommandsAreAcknowledged) {
  DeviceModel m;
  for (std::uint8_t cmd : {CmdBlock, CmdSegment}) {
    const DeviceAnswer a = send(m, request(cmd, kMe, 0x08004200, 0x300));
    ASSERT_TRUE(a.answered);
    const FrameFields f = decodeFields(a.reply.data());
    EXPECT_EQ(f.frameType, 1);
    EXPECT_EQ(f.command, cmd);
    EXPECT_EQ(f.address, 0x08004200u);
    EXPECT_EQ(f.length, 0x300u);
    EXPECT_EQ(f.id0, kMe.id0);
  }
  EXPECT_EQ(m.flash(), std::vector<std::uint8_t>(kFlashSize, 0xFF));
}

} // namespace
