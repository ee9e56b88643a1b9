#pragma once
// Builds AELF file contents for the reader tests.
#include "image/AelfImage.h"

#include <string>

struct AelfHeaderValues {
  uint32_t exeAddr = 0x08004000;
  uint32_t exeSize = 0;
  uint32_t resAddr = 0x08030000;
  uint32_t resSize = 0;
};

inline std::string aelfHeader(const AelfHeaderValues& values) {
  uint8_t header[aelfHeaderSize];
  for (uint32_t i = 0; i < aelfHeaderSize; ++i) header[i] = uint8_t(0xA0 + i);
  writeLe32(header + headerExeAddr, values.exeAddr);
  writeLe32(header + headerExeSize, values.exeSize);
  writeLe32(header + headerResAddr, values.resAddr);
  writeLe32(header + headerResSize, values.resSize);
  return std::string(reinterpret_cast<const char*>(header), aelfHeaderSize);
}

inline std::string pattern(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = char((i * 7 + seed * 13 + (i >> 8)) & 0xFF);
  return bytes;
}

inline std::string aelfFile(const AelfHeaderValues& values, const std::string& program, const std::string& resources) {
  return "AELF" + aelfHeader(values) + program + resources;
}
