#pragma once
// Small helpers the simulator tests share: building request frames.
#include "device/Frame.h"
#include "sim/DeviceModel.h"

#include <cstdint>
#include <vector>

inline std::vector<std::uint8_t> request(std::uint8_t command, DeviceIdentity ids, std::uint32_t address,
                                         std::uint32_t length, const std::uint8_t* data = nullptr) {
  FrameFields f;
  f.id0 = ids.id0;
  f.id1 = ids.id1;
  f.id2 = ids.id2;
  f.command = command;
  f.address = address;
  f.length = length;
  std::vector<std::uint8_t> out(kFrameMax);
  out.resize(encodeFrame(out.data(), f, data));
  return out;
}

inline DeviceIdentity broadcastIds() { return DeviceIdentity{0, 0, 0}; }

inline std::vector<std::uint8_t> pattern(std::size_t n, std::uint8_t seed) {
  std::vector<std::uint8_t> v(n);
  for (std::size_t i = 0; i < n; ++i) v[i] = static_cast<std::uint8_t>(seed + i * 7);
  return v;
}
