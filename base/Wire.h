#pragma once
// The serial line's facts that the host and the simulated device share: the baud
// rates a session can be reopened at, and how long bytes take on the wire.
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

// The baud rates by the index a session is reopened with: the discovery ladder,
// slowest first. The last one is the transfer rate the line moves to after Start.
constexpr std::array<std::uint32_t, 5> kLadderBauds = {9600, 19200, 38400, 115200, 921600};
constexpr std::uint8_t kTransferBaudIndex = 4;
constexpr std::uint32_t kTransferBaud = kLadderBauds[kTransferBaudIndex];

// The time n bytes take on an 8N1 line (10 bits each) at baud, rounded up to
// the microsecond; 0 at baud 0.
constexpr std::chrono::microseconds wireTime(std::size_t bytes, std::uint32_t baud) {
  if (baud == 0) return std::chrono::microseconds(0);
  const std::uint64_t bitMicros = static_cast<std::uint64_t>(bytes) * 10u * 1000000u;
  return std::chrono::microseconds(static_cast<std::int64_t>((bitMicros + baud - 1) / baud));
}
