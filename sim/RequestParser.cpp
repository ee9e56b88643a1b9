#include "sim/RequestParser.h"

#include "device/Frame.h"

namespace {

// Bytes the frame at the front needs in all, judged from its header.
std::size_t neededFor(const std::vector<std::uint8_t>& b) {
  if (b[kOffCommand] == CmdWriteBlock) {
    const std::uint32_t length = readLe32(b.data() + kOffLength);
    if (length >= 1 && length <= kFrameDataMax) return kFrameHeader + length + 2;
  }
  return kFrameHeader + 2;
}

} // namespace

void RequestParser::reset() {
  dropped_ += bytes_.size();
  bytes_.clear();
  times_.clear();
}

std::vector<ParsedFrame> RequestParser::feed(const std::uint8_t* data, std::size_t n, std::int64_t nowUs,
                                             std::int64_t silenceUs) {
  std::vector<ParsedFrame> frames;
  if (!bytes_.empty() && nowUs - lastUs_ > silenceUs) reset();
  if (n == 0) return frames;
  lastUs_ = nowUs;

  std::size_t used = 0;
  while (true) {
    // Top up only as far as the frame at the front can need, so the held bytes
    // stay bounded whatever the chunk size.
    while (used < n && bytes_.size() < kFrameMax) {
      bytes_.push_back(data[used++]);
      times_.push_back(nowUs);
    }
    if (bytes_.size() < kFrameHeader + 2) break;
    const std::size_t need = neededFor(bytes_);
    if (bytes_.size() < need) break; // the whole chunk is in: wait for more
    if (frameCrcOk(bytes_.data(), need)) {
      ParsedFrame f;
      f.bytes.assign(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(need));
      f.firstByteUs = times_.front();
      f.lastByteUs = times_[need - 1];
      frames.push_back(std::move(f));
      bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(need));
      times_.erase(times_.begin(), times_.begin() + static_cast<std::ptrdiff_t>(need));
    } else {
      bytes_.erase(bytes_.begin());
      times_.erase(times_.begin());
      ++dropped_;
    }
  }
  return frames;
}
