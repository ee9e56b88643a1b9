#pragma once
// The device request/reply frame and its CRC-16/MODBUS.
//
// Layout (little-endian): frameType u8, id0 u32, id1 u32, id2 u32, command u8,
// address u32, length u32, optional data, CRC u16 (low byte first). A frame is at
// most 280 bytes, so it carries at most 256 data bytes.
#include <cstddef>
#include <cstdint>

#include "base/Bytes.h"

constexpr std::size_t kFrameMax = 280;
constexpr std::size_t kFrameHeader = 22;
constexpr std::size_t kFrameDataMax = kFrameMax - kFrameHeader - 2;
constexpr std::uint32_t kBlockSize = 256;

// Offsets of the fields inside a frame.
constexpr std::size_t kOffFrameType = 0;
constexpr std::size_t kOffId0 = 1;
constexpr std::size_t kOffId1 = 5;
constexpr std::size_t kOffId2 = 9;
constexpr std::size_t kOffCommand = 13;
constexpr std::size_t kOffAddress = 14;
constexpr std::size_t kOffLength = 18;
constexpr std::size_t kOffData = 22;

// Command codes the host sends.
enum DeviceCommand : std::uint8_t {
  CmdIdentify = 0,
  CmdCheckBlock = 1,
  CmdStart = 2,
  CmdBlock = 7,
  CmdSegment = 9,
  CmdWriteBlock = 11,
  CmdFinish = 18,
};

struct FrameFields {
  std::uint8_t frameType = 0;
  std::uint32_t id0 = 0, id1 = 0, id2 = 0;
  std::uint8_t command = 0;
  std::uint32_t address = 0;
  std::uint32_t length = 0;
};

// Folds one byte into a running CRC-16/MODBUS (start value 0xFFFF, no final XOR).
std::uint16_t crc16Update(std::uint16_t crc, std::uint8_t byte);
// Writes the CRC of count bytes into out; count 0 gives 0xFFFF.
void crc16(std::uint16_t& out, const std::uint8_t* data, std::size_t count);
std::uint16_t crc16Of(const std::uint8_t* data, std::size_t count);

// Builds a frame into out (room for kFrameMax bytes) and returns its length with the
// CRC. Data is copied only when data is non-null and length is non-zero; the length
// field is written either way. Returns 0, writing nothing, when the data would not fit.
std::size_t encodeFrame(std::uint8_t* out, const FrameFields& fields, const std::uint8_t* data);

// The fixed fields of a frame of at least kFrameHeader bytes.
FrameFields decodeFields(const std::uint8_t* frame);

// True when the last two of n bytes are the CRC of the bytes before them (n >= 3).
bool frameCrcOk(const std::uint8_t* frame, std::size_t n);
