#include "device/Frame.h"

#include <cstring>

std::uint16_t crc16Update(std::uint16_t crc, std::uint8_t byte) {
  crc ^= byte;
  for (int bit = 0; bit < 8; ++bit) {
    if (crc & 1u)
      crc = static_cast<std::uint16_t>((crc >> 1) ^ 0xA001u);
    else
      crc = static_cast<std::uint16_t>(crc >> 1);
  }
  return crc;
}

void crc16(std::uint16_t& out, const std::uint8_t* data, std::size_t count) {
  std::uint16_t crc = 0xFFFF;
  for (std::size_t i = 0; i < count; ++i) crc = crc16Update(crc, data[i]);
  out = crc;
}

std::uint16_t crc16Of(const std::uint8_t* data, std::size_t count) {
  std::uint16_t crc;
  crc16(crc, data, count);
  return crc;
}

std::size_t encodeFrame(std::uint8_t* out, const FrameFields& fields, const std::uint8_t* data) {
  const bool withData = data != nullptr && fields.length != 0;
  if (withData && fields.length > kFrameDataMax) return 0;
  out[kOffFrameType] = fields.frameType;
  writeLe32(out + kOffId0, fields.id0);
  writeLe32(out + kOffId1, fields.id1);
  writeLe32(out + kOffId2, fields.id2);
  out[kOffCommand] = fields.command;
  writeLe32(out + kOffAddress, fields.address);
  writeLe32(out + kOffLength, fields.length);
  std::size_t n = kFrameHeader;
  if (withData) {
    std::memcpy(out + kOffData, data, fields.length);
    n += fields.length;
  }
  const std::uint16_t crc = crc16Of(out, n);
  out[n] = static_cast<std::uint8_t>(crc);
  out[n + 1] = static_cast<std::uint8_t>(crc >> 8);
  return n + 2;
}

FrameFields decodeFields(const std::uint8_t* frame) {
  FrameFields f;
  f.frameType = frame[kOffFrameType];
  f.id0 = readLe32(frame + kOffId0);
  f.id1 = readLe32(frame + kOffId1);
  f.id2 = readLe32(frame + kOffId2);
  f.command = frame[kOffCommand];
  f.address = readLe32(frame + kOffAddress);
  f.length = readLe32(frame + kOffLength);
  return f;
}

bool frameCrcOk(const std::uint8_t* frame, std::size_t n) {
  if (n < 3) return false;
  const std::uint16_t got = static_cast<std::uint16_t>(frame[n - 2] | frame[n - 1] << 8);
  return crc16Of(frame, n - 2) == got;
}
