#pragma once
// Finds complete request frames in the bytes the device receives.
//
// A request is 22 header bytes, the data (only write-block, command 11, carries
// data: `length` bytes, at most 256), and 2 CRC bytes. At the front of the
// buffer the parser takes:
//   - a write-block header with a length of 1..256: the 24 + length bytes, once
//     they are all there, when their CRC checks;
//   - any other header: the 24 bytes, when their CRC checks.
// When the front does not check, one byte is dropped and the search goes on, so
// the parser resynchronises after garbage. A partial frame followed by a silence
// longer than silenceUs is dropped. The buffer never holds more than one frame's
// worth of bytes beyond the chunk being fed.
#include <cstddef>
#include <cstdint>
#include <vector>

struct ParsedFrame {
  std::vector<std::uint8_t> bytes;
  std::int64_t firstByteUs = 0; // when the chunk holding its first byte arrived
  std::int64_t lastByteUs = 0;  // when the chunk holding its last byte arrived
};

class RequestParser {
public:
  // Feeds one chunk that arrived at nowUs; returns the frames it completed.
  std::vector<ParsedFrame> feed(const std::uint8_t* data, std::size_t n, std::int64_t nowUs, std::int64_t silenceUs);
  // Drops whatever partial frame is held.
  void reset();
  std::size_t pending() const { return bytes_.size(); }
  std::size_t droppedBytes() const { return dropped_; }

private:
  std::vector<std::uint8_t> bytes_;
  std::vector<std::int64_t> times_; // arrival time of each held byte
  std::int64_t lastUs_ = 0;
  std::size_t dropped_ = 0;
};
