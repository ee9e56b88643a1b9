// The reply framer driven as the session's worker drives it. Input: byte 0 bit 0 the
// framing (0 fast, 1 gap), bits 1..3 the baud rate; then chunks: a header byte (low 6
// bits: length - 1; high 2: the pause before it, see `pauses`) and its bytes.
#include "base/Wire.h"
#include "device/Frame.h"
#include "device/ReplyFramer.h"
#include "tests/fuzz/FuzzSupport.h"

#include <algorithm>

using Clock = ReplyFramer::Clock;
using std::chrono::microseconds;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const bool fast = (data[0] & 1) == 0;
  ReplyFramer framer;
  framer.begin(fast ? ReplyFraming::fast : ReplyFraming::gap, kLadderBauds[((data[0] >> 1) & 7) % kLadderBauds.size()]);
  const auto gap = std::chrono::milliseconds(100); // written out: the framer's own constant is under test
  std::vector<uint8_t> stream;                     // every byte fed; those of ended frames come first
  std::size_t consumed = 0;
  Clock::time_point now = Clock::time_point{} + std::chrono::hours(1), lastFeed = now;
  auto end = [&](Clock::time_point at) {
    const FrameVerdict verdict = framer.poll(at);
    const std::size_t n = framer.size();
    fuzzCheck(n != 0 && n <= kFrameMax && consumed + n <= stream.size() &&
                  std::equal(framer.bytes(), framer.bytes() + n, stream.begin() + std::ptrdiff_t(consumed)),
              "frame is not the bytes that followed the previous one");
    const bool good = n >= 3 && frameCrcOk(framer.bytes(), n);
    const FrameVerdict want = n < 3 ? FrameVerdict::tooShort : good ? FrameVerdict::good : FrameVerdict::badCrc;
    fuzzCheck(verdict == want, "verdict does not match the frame");
    fuzzCheck(at - lastFeed >= gap || n == kFrameMax || (fast && good && n >= kFrameHeader + 2),
              "frame ended before the gap");
    consumed += n;
  };
  // The line is quiet until `until`: a frame whose deadline comes first ends there.
  auto quietUntil = [&](Clock::time_point until) {
    if (consumed == stream.size()) return;
    const Clock::time_point deadline = framer.deadline();
    fuzzCheck(deadline <= lastFeed + gap, "frame still open 100 ms after its last byte");
    if (deadline > until) return;
    fuzzCheck(framer.poll(deadline - microseconds(1)) == FrameVerdict::open, "frame ended before its deadline");
    end(deadline);
  };
  static const microseconds pauses[4] = {microseconds(0), microseconds(1000), microseconds(5000), microseconds(110000)};
  for (std::size_t at = 1; at < size;) {
    const uint8_t head = data[at++];
    const std::size_t length = std::min<std::size_t>((head & 0x3f) + 1u, size - at);
    now += pauses[head >> 6];
    quietUntil(now);
    stream.insert(stream.end(), data + at, data + at + length);
    for (std::size_t fed = 0; fed < length;) {
      const std::size_t taken = framer.feed(data + at + fed, length - fed, now);
      if (taken != 0) lastFeed = now;
      fed += taken;
      // A full frame ends at the worker's next poll, at once.
      if (framer.size() == kFrameMax)
        end(now);
      else
        fuzzCheck(fed == length, "bytes refused by a frame that is not full");
    }
    at += length;
  }
  quietUntil(Clock::time_point::max());
  fuzzCheck(consumed == stream.size(), "a frame never ended, or bytes were lost");
  return 0;
}
