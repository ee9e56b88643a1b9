// The reply framer on arbitrary bytes in arbitrary chunks, with a line's pauses
// between them, driven as the session's worker drives it: each chunk is fed when it
// arrives, and while the line is quiet the frame is polled at its deadline. No pty
// and no real time: the clock is the sum of the pauses.
//
// Every frame must hold exactly the bytes that followed the previous frame (none
// lost, none twice); its verdict must match its size and CRC; it must still be open
// just before its deadline; and it may end before 100 ms of silence only when it is
// full, or in the fast framing with a good CRC over at least a frame without data.
//
// Input: byte 0 bit 0 picks the framing (0 fast, 1 gap), bits 1..3 the baud rate
// (an index of the ladder, wrapped); then chunks, each a header byte (low 6 bits:
// length - 1, high 2 bits: the pause before it: none, 1 ms, 5 ms, 110 ms) and its bytes.
#include "base/Wire.h"
#include "device/Frame.h"
#include "device/ReplyFramer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

using Clock = ReplyFramer::Clock;
using std::chrono::microseconds;

void fail(const char* what) {
  std::fprintf(stderr, "reply framer: %s\n", what);
  std::abort();
}

class Harness {
public:
  Harness(ReplyFraming framing, std::uint32_t baud) : framing_(framing) { framer_.begin(framing, baud); }

  // The line is quiet until `until`: a frame whose deadline comes first ends there.
  void quietUntil(Clock::time_point until) {
    if (!holding_ || framer_.deadline() > until) return;
    const Clock::time_point end = framer_.deadline();
    if (framer_.poll(end - microseconds(1)) != FrameVerdict::open) fail("frame ended before its deadline");
    ended(framer_.poll(end), end);
  }

  void arrive(const std::uint8_t* data, std::size_t n, Clock::time_point now) {
    stream_.insert(stream_.end(), data, data + n);
    while (n != 0) {
      const std::size_t taken = framer_.feed(data, n, now);
      if (taken != 0) {
        holding_ = true;
        lastFeed_ = now;
      }
      data += taken;
      n -= taken;
      if (n == 0) break;
      // Full: the worker's next poll ends it at once.
      if (framer_.size() != kFrameMax) fail("bytes refused by a frame that is not full");
      ended(framer_.poll(now), now);
    }
    // A frame filled to the last byte ends at the worker's next poll, at once.
    if (holding_ && framer_.size() == kFrameMax) ended(framer_.poll(now), now);
  }

  void finish() {
    quietUntil(Clock::time_point::max());
    if (holding_) fail("a frame never ended");
    if (consumed_ != stream_.size()) fail("bytes were lost");
  }

private:
  void ended(FrameVerdict verdict, Clock::time_point at) {
    const std::size_t n = framer_.size();
    if (verdict == FrameVerdict::open || verdict == FrameVerdict::empty) fail("a frame with bytes did not end");
    if (n == 0 || n > kFrameMax || consumed_ + n > stream_.size()) fail("impossible frame length");
    if (!std::equal(framer_.bytes(), framer_.bytes() + n, stream_.begin() + static_cast<std::ptrdiff_t>(consumed_)))
      fail("frame is not the bytes that followed the previous one");
    const FrameVerdict expected = n < 3                            ? FrameVerdict::tooShort
                                  : frameCrcOk(framer_.bytes(), n) ? FrameVerdict::good
                                                                   : FrameVerdict::badCrc;
    if (verdict != expected) fail("verdict does not match the frame");
    const bool early = at - lastFeed_ < ReplyFramer::kGap;
    const bool fastGood = framing_ == ReplyFraming::fast && verdict == FrameVerdict::good && n >= kFrameHeader + 2;
    if (early && n != kFrameMax && !fastGood) fail("frame ended before the gap");
    consumed_ += n;
    holding_ = false;
  }

  ReplyFraming framing_;
  ReplyFramer framer_;
  std::vector<std::uint8_t> stream_;
  std::size_t consumed_ = 0;
  bool holding_ = false;
  Clock::time_point lastFeed_{};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const ReplyFraming framing = (data[0] & 1) ? ReplyFraming::gap : ReplyFraming::fast;
  Harness harness(framing, kLadderBauds[((data[0] >> 1) & 7) % kLadderBauds.size()]);
  Clock::time_point now = Clock::time_point{} + std::chrono::hours(1);
  std::size_t at = 1;
  while (at < size) {
    const uint8_t head = data[at++];
    const std::size_t length = std::min<std::size_t>((head & 0x3f) + 1u, size - at);
    static const microseconds pauses[4] = {microseconds(0), microseconds(1000), microseconds(5000),
                                           microseconds(110000)};
    now += pauses[head >> 6];
    harness.quietUntil(now);
    harness.arrive(data + at, length, now);
    at += length;
  }
  harness.finish();
  return 0;
}
