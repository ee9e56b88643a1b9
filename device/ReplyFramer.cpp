#include "device/ReplyFramer.h"

#include <algorithm>
#include <cstring>

#include "base/Wire.h"

namespace {

// The smallest frame the fast framing ends on its CRC alone: a frame without data,
// which is also the length of every reply.
constexpr std::size_t kFastMinFrame = kFrameHeader + 2;
// The fast framing's silence, in character times.
constexpr std::size_t kFastQuietChars = 3;

} // namespace

void ReplyFramer::begin(ReplyFraming framing, std::uint32_t baud) {
  framing_ = framing;
  quiet_ = std::max<Clock::duration>(kFastMinQuiet, wireTime(kFastQuietChars, baud));
  clear();
}

void ReplyFramer::clear() {
  size_ = 0;
  crcOk_ = false;
  complete_ = false;
  ended_ = false;
}

std::size_t ReplyFramer::feed(const std::uint8_t* data, std::size_t n, Clock::time_point now) {
  if (ended_) clear();
  const std::size_t take = std::min(n, room());
  if (take == 0) return 0;
  std::memcpy(bytes_.data() + size_, data, take);
  size_ += take;
  last_ = now;
  crcOk_ = framing_ == ReplyFraming::fast && size_ >= kFastMinFrame && frameCrcOk(bytes_.data(), size_);
  // A reply is complete when it is complete: nothing more belongs to it, so waiting
  // for a quiet line would only delay the next request.
  complete_ = crcOk_ && size_ == kFastMinFrame;
  return take;
}

FrameVerdict ReplyFramer::poll(Clock::time_point now) {
  // A complete reply's deadline is its last byte: a poll at or after it ends it.
  if (!ended_ && size_ != 0 && size_ < kFrameMax && now < deadline()) return FrameVerdict::open;
  return cut();
}

FrameVerdict ReplyFramer::cut() {
  ended_ = true;
  return judge();
}

FrameVerdict ReplyFramer::judge() const {
  if (size_ == 0) return FrameVerdict::empty;
  if (size_ < 3) return FrameVerdict::tooShort;
  return frameCrcOk(bytes_.data(), size_) ? FrameVerdict::good : FrameVerdict::badCrc;
}
