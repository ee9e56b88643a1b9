// The request frame and its CRC-16/MODBUS.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <vector>

#include "device/Frame.h"

TEST(Frame, CrcAndLayout) {
  const auto* text = reinterpret_cast<const std::uint8_t*>("123456789");
  std::uint16_t crc = 0, running = 0xFFFF;
  crc16(crc, text, 9);
  EXPECT_EQ(crc, 0x4B37);
  for (int i = 0; i < 9; ++i) running = crc16Update(running, text[i]);
  EXPECT_EQ(running, 0x4B37);
  crc16(crc, nullptr, 0);
  EXPECT_EQ(crc, 0xFFFF);

  std::uint8_t frame[kFrameMax + 64];
  FrameFields fields; // identify: broadcast, all zero
  ASSERT_EQ(encodeFrame(frame, fields, nullptr), 24u);
  EXPECT_EQ(std::vector<std::uint8_t>(frame, frame + 24),
            (std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x5B, 0x0B}));
  EXPECT_EQ(crc16Of(frame, 24), 0); // a whole good frame, CRC included

  std::vector<std::uint8_t> block(kBlockSize);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i * 7);
  fields = {1, 0x00c0ffee, 0x12345678, 0x9abcdef0, CmdWriteBlock, 0x08004000, kBlockSize};
  ASSERT_EQ(encodeFrame(frame, fields, block.data()), 280u);
  EXPECT_EQ(std::memcmp(frame + kOffData, block.data(), block.size()), 0);
  EXPECT_TRUE(frameCrcOk(frame, 280));
  const FrameFields back = decodeFields(frame);
  const auto tie = [](const FrameFields& f) {
    return std::tie(f.frameType, f.id0, f.id1, f.id2, f.command, f.address, f.length);
  };
  EXPECT_TRUE(tie(back) == tie(fields));
  EXPECT_EQ(frame[kOffAddress + 3], 0x08);             // little-endian
  EXPECT_EQ(encodeFrame(frame, fields, nullptr), 24u); // the length alone is a field
  EXPECT_EQ(readLe32(frame + kOffLength), 256u);

  fields.length = 257; // does not fit: refused, nothing written
  std::memset(frame, 0x5A, sizeof frame);
  EXPECT_EQ(encodeFrame(frame, fields, std::vector<std::uint8_t>(300).data()), 0u);
  EXPECT_EQ(frame[0], 0x5A);

  std::uint8_t three[3] = {0x42, 0, 0}; // three bytes: checked over the first
  EXPECT_FALSE(frameCrcOk(three, 2));
  three[1] = static_cast<std::uint8_t>(crc16Of(three, 1));
  three[2] = static_cast<std::uint8_t>(crc16Of(three, 1) >> 8);
  EXPECT_TRUE(frameCrcOk(three, 3));
  three[2] ^= 1;
  EXPECT_FALSE(frameCrcOk(three, 3));
}
