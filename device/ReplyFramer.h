#pragma once
// Where a reply frame ends, decided from the bytes the session's worker reads and
// the times it read them. No port and no clock of its own: the worker feeds it,
// polls it while the line is quiet, and acts on its verdict.
//
// A frame ends
//   - at once when it holds kFrameMax bytes;
//   - gap framing: once 100 ms have passed without a byte;
//   - fast framing: at once when its bytes are exactly one reply (24 bytes: replies
//     carry no data) with a good CRC; otherwise once its bytes (at least a frame
//     without data) carry a good CRC and the line has been quiet for three
//     character times, at least 50 us; bytes without a good CRC wait for the same
//     100 ms as the gap framing.
// Bytes fed before the frame is polled belong to it, however late they came: the
// frame ends only when a poll finds it complete or the line quiet long enough. Both framings then
// judge the frame alike: no byte, fewer than 3 bytes, a bad CRC, or good.
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "device/Frame.h"

// How the session decides that a reply frame is complete.
enum class ReplyFraming {
  gap,  // after 100 ms without a byte
  fast, // a good 24-byte reply at once; another good-CRC frame after a short silence
};

enum class FrameVerdict {
  open,     // the frame goes on: more bytes may come
  empty,    // it ended without a byte
  tooShort, // it ended with fewer than 3 bytes
  badCrc,   // it ended and its last two bytes are not the CRC of the others
  good,     // it ended with a good CRC
};

class ReplyFramer {
public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kGap{100};
  // The shortest silence that ends a fast frame, whatever the baud rate: a pty or a
  // driver hands over one write in pieces that are this close together.
  static constexpr std::chrono::microseconds kFastMinQuiet{50};

  // Starts an empty frame with the given rules; the fast framing's silence follows
  // the baud rate of the line.
  void begin(ReplyFraming framing, std::uint32_t baud);
  // Bytes the frame can still take (a frame that has ended makes room for a new one).
  std::size_t room() const { return ended_ ? kFrameMax : kFrameMax - size_; }
  // Appends bytes read at `now`, at most room() of them; returns how many it took.
  // After an ended frame the bytes start the next one, with the same rules.
  std::size_t feed(const std::uint8_t* data, std::size_t n, Clock::time_point now);
  // Whether the frame has ended by `now`: open, or the verdict of the ended frame.
  FrameVerdict poll(Clock::time_point now);
  // Ends the frame now whatever the time (the line can bring no more) and judges it.
  FrameVerdict cut();
  // When the frame ends unless another byte comes first; meaningful while it holds bytes.
  Clock::time_point deadline() const { return complete_ ? last_ : last_ + (crcOk_ ? quiet_ : Clock::duration(kGap)); }

  const std::uint8_t* bytes() const { return bytes_.data(); }
  std::size_t size() const { return size_; }

private:
  void clear();
  FrameVerdict judge() const;

  ReplyFraming framing_ = ReplyFraming::gap;
  Clock::duration quiet_ = kFastMinQuiet;
  std::array<std::uint8_t, kFrameMax> bytes_{};
  std::size_t size_ = 0;
  Clock::time_point last_{};
  bool crcOk_ = false;    // fast framing only: the bytes so far make a good frame
  bool complete_ = false; // fast framing only: they are exactly one good reply
  bool ended_ = false;
};
