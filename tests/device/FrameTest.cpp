// The request frame and its CRC-16/MODBUS.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "device/Frame.h"

namespace {

TEST(Crc16, MatchesTheModbusCheckValue) {
  const char* text = "123456789";
  std::uint16_t crc = 0;
  crc16(crc, reinterpret_cast<const std::uint8_t*>(text), std::strlen(text));
  EXPECT_EQ(crc, 0x4B37);
  crc16(crc, nullptr, 0);
  EXPECT_EQ(crc, 0xFFFF);
  std::uint16_t running = 0xFFFF;
  for (const char* p = text; *p; ++p) running = crc16Update(running, static_cast<std::uint8_t>(*p));
  EXPECT_EQ(running, 0x4B37);
}

TEST(Frame, IdentifyRequestIsTwentyTwoZerosAndItsCrc) {
  std::uint8_t frame[kFrameMax];
  FrameFields fields; // broadcast, command 0, address 0, length 0
  ASSERT_EQ(encodeFrame(frame, fields, nullptr), 24u);
  for (int i = 0; i < 22; ++i) EXPECT_EQ(frame[i], 0) << "byte " << i;
  EXPECT_EQ(frame[22], 0x5B);
  EXPECT_EQ(frame[23], 0x0B);
  EXPECT_TRUE(frameCrcOk(frame, 24));
  // A whole good frame, CRC included, has CRC 0.
  EXPECT_EQ(crc16Of(frame, 24), 0);
}

TEST(Frame, WriteBlockRequestFillsTheWholeFrame) {
  std::vector<std::uint8_t> block(kBlockSize);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i * 7);
  FrameFields fields;
  fields.id0 = 0x00c0ffee;
  fields.id1 = 0x12345678;
  fields.id2 = 0x9abcdef0;
  fields.command = CmdWriteBlock;
  fields.address = 0x08004000;
  fields.length = kBlockSize;
  std::uint8_t frame[kFrameMax];
  ASSERT_EQ(encodeFrame(frame, fields, block.data()), 280u);
  EXPECT_EQ(std::memcmp(frame + kOffData, block.data(), block.size()), 0);
  EXPECT_TRUE(frameCrcOk(frame, 280));
  const FrameFields back = decodeFields(frame);
  EXPECT_EQ(back.id0, fields.id0);
  EXPECT_EQ(back.id1, fields.id1);
  EXPECT_EQ(back.id2, fields.id2);
  EXPECT_EQ(back.command, CmdWriteBlock);
  EXPECT_EQ(back.address, 0x08004000u);
  EXPECT_EQ(back.length, 256u);
  EXPECT_EQ(frame[kOffAddress], 0x00);
  EXPECT_EQ(frame[kOffAddress + 3], 0x08);
}

TEST(Frame, LengthWithoutDataIsOnlyAField) {
  FrameFields fields;
  fields.command = CmdCheckBlock;
  fields.length = kBlockSize;
  std::uint8_t frame[kFrameMax];
  EXPECT_EQ(encodeFrame(frame, fields, nullptr), 24u);
  EXPECT_EQ(readLe32(frame + kOffLength), 256u);
}

TEST(Frame, DataThatDoesNotFitIsRefused) {
  std::vector<std::uint8_t> data(300, 0xAB);
  FrameFields fields;
  fields.length = 257;
  std::uint8_t frame[kFrameMax + 64];
  std::memset(frame, 0x5A, sizeof frame);
  EXPECT_EQ(encodeFrame(frame, fields, data.data()), 0u);
  for (std::uint8_t b : frame) ASSERT_EQ(b, 0x5A);
}

TEST(Frame, CrcCheckNeedsThreeBytesAndCoversAllButTheLastTwo) {
  std::uint8_t frame[3] = {0x42, 0, 0};
  EXPECT_FALSE(frameCrcOk(frame, 2));
  const std::uint16_t crc = crc16Of(frame, 1);
  frame[1] = static_cast<std::uint8_t>(crc);
  frame[2] = static_cast<std::uint8_t>(crc >> 8);
  EXPECT_TRUE(frameCrcOk(frame, 3));
  frame[2] ^= 1;
  EXPECT_FALSE(frameCrcOk(frame, 3));
}

} // namespace
