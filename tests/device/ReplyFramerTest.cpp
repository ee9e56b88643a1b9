// The request frame and its CRC, and the reply framer on scripts of bytes fed and polls at given
// moments. An ended frame must hold exactly the bytes fed since the previous one ended.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <tuple>
#include <utility>
#include <vector>

#include "device/ReplyFramer.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes frame(std::uint8_t command, std::uint32_t id0, const Bytes& data = {}) {
  Bytes out(kFrameMax);
  out.resize(encodeFrame(out.data(), {1, id0, 0, 0, command, 0, static_cast<std::uint32_t>(data.size())}, data.data()));
  return out;
}
Bytes slice(const Bytes& b, std::size_t from, std::size_t to) { return Bytes(b.begin() + from, b.begin() + to); }
Bytes join(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(Frame, CrcAndLayout) {
  std::uint16_t crc = 0;
  crc16(crc, reinterpret_cast<const std::uint8_t*>("123456789"), 9);
  EXPECT_EQ(crc, 0x4B37);
  std::uint8_t out[kFrameMax + 64];
  Bytes block(kBlockSize);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i * 7);
  FrameFields fields{1, 0x00c0ffee, 0x12345678, 0x9abcdef0, CmdWriteBlock, 0x08004000, kBlockSize};
  ASSERT_EQ(encodeFrame(out, fields, block.data()), 280u);
  EXPECT_TRUE(std::memcmp(out + kOffData, block.data(), block.size()) == 0 && frameCrcOk(out, 280));
  // Without data the length is a field alone; data that does not fit is refused, nothing written.
  EXPECT_TRUE(encodeFrame(out, fields, nullptr) == 24u && readLe32(out + kOffLength) == 256u);
  fields.length = 257;
  std::memset(out, 0x5A, sizeof out);
  EXPECT_TRUE(encodeFrame(out, fields, Bytes(300).data()) == 0u && out[0] == 0x5A);
}

const Bytes kReply = frame(CmdIdentify, 0x00c0ffee);
const Bytes kOther = frame(CmdCheckBlock, 1);
const Bytes kData = frame(CmdCheckBlock, 1, Bytes(4, 0x33));
const Bytes kCorrupt = join(slice(kReply, 0, 23), {static_cast<std::uint8_t>(kReply[23] ^ 0x5A)});
const Bytes kStray = {0xAA, 0xBB};
const Bytes kThree = {0x01, 0x7E, 0x80}; // one byte and its CRC
const Bytes kFullAndMore = join(frame(CmdWriteBlock, 1, Bytes(kFrameDataMax, 0x5A)), Bytes(20, 0x11));

// Bytes fed at a moment (in microseconds), or (no bytes) a poll then with its verdict.
using Event = std::tuple<std::int64_t, Bytes, FrameVerdict>;
Event in(std::int64_t us, Bytes bytes) { return {us, std::move(bytes), FrameVerdict::open}; }
Event at(std::int64_t us, FrameVerdict expect) { return {us, {}, expect}; }

constexpr auto open = FrameVerdict::open, good = FrameVerdict::good, badCrc = FrameVerdict::badCrc;
constexpr auto gap = ReplyFraming::gap, fast = ReplyFraming::fast;

// Each script: its name, the framing, the line's baud rate and its events in order.
const std::tuple<const char*, ReplyFraming, std::uint32_t, std::vector<Event>> kScripts[] = {
    // clang-format off
    {"gap: ends 100 ms after the last byte", gap, 9600, {in(0, kReply), at(99'999, open), at(100'000, good)}},
    {"gap: a 99 ms pause continues", gap, 9600, {in(0, slice(kReply, 0, 10)), at(99'000, open),
        in(99'000, slice(kReply, 10, 24)), at(198'999, open), at(199'000, good)}},
    {"gap: a 101 ms pause ends it", gap, 9600, {in(0, slice(kReply, 0, 10)), at(101'000, badCrc),
                                                in(101'000, slice(kReply, 10, 24)), at(201'000, badCrc)}},
    {"gap: replies back to back are one frame", gap, 921600, {in(0, join(kReply, kOther)), at(100'000, badCrc)}},
    {"gap: two a gap apart", gap, 921600, {in(0, kReply), at(100'000, good), in(100'500, kOther), at(200'500, good)}},
    {"gap: a short frame", gap, 9600, {in(0, kStray), at(100'000, FrameVerdict::tooShort)}},
    {"gap: three bytes are checked over the first", gap, 9600, {in(0, kThree), at(100'000, good)}},
    {"gap: a full frame ends at once", gap, 9600, {in(0, kFullAndMore), at(0, good)}},
    {"gap: nothing fed", gap, 9600, {at(0, FrameVerdict::empty)}},
    {"fast: three character times", fast, 9600, {in(0, kData), at(3'124, open), at(3'125, good)}},
    {"fast: at least 50 us", fast, 921600, {in(0, kData), at(49, open), at(50, good)}},
    {"fast: a good reply ends at once, also in pieces", fast, 9600, {in(0, kReply), at(0, good),
        in(10, slice(kReply, 0, 10)), at(20'000, open), in(20'000, slice(kReply, 10, 24)), at(20'000, good)}},
    {"fast: replies back to back wait the gap", fast, 921600, {in(0, join(kReply, kOther)), at(50, open),
                                                               at(99'999, open), at(100'000, badCrc)}},
    {"fast: replies a pause apart", fast, 921600, {in(0, kReply), at(50, good), in(1'000, kOther), at(1'050, good)}},
    {"fast: stray bytes after a reply wait the gap", fast, 921600, {in(0, kReply), at(50, good),
        in(40'000, kStray), at(139'999, open), at(140'000, FrameVerdict::tooShort)}},
    {"fast: a bad CRC waits the gap", fast, 921600, {in(0, kCorrupt), at(50, open), at(100'000, badCrc)}},
    {"fast: three good bytes wait the gap", fast, 921600, {in(0, kThree), at(50, open), at(100'000, good)}},
    {"fast: a full frame ends at once", fast, 921600, {in(0, kFullAndMore), at(0, good)}},
    // clang-format on
};

TEST(ReplyFramer, ScriptedBytesAndTimes) {
  for (const auto& [name, framing, baud, events] : kScripts) {
    SCOPED_TRACE(name);
    ReplyFramer framer;
    framer.begin(framing, baud);
    const auto start = ReplyFramer::Clock::time_point{} + std::chrono::hours(1);
    Bytes sinceEnd; // the bytes fed since the last frame ended
    for (const auto& [atUs, feed, expect] : events) {
      SCOPED_TRACE(testing::Message() << "at " << atUs << " us");
      const auto now = start + std::chrono::microseconds(atUs);
      if (feed.empty()) {
        EXPECT_EQ(framer.poll(now), expect);
        if (expect != FrameVerdict::open) {
          EXPECT_EQ(Bytes(framer.bytes(), framer.bytes() + framer.size()), std::exchange(sinceEnd, {}));
        }
        continue;
      }
      const std::size_t room = framer.room(), taken = framer.feed(feed.data(), feed.size(), now);
      EXPECT_EQ(taken, std::min(room, feed.size()));
      sinceEnd.insert(sinceEnd.end(), feed.begin(), feed.begin() + static_cast<std::ptrdiff_t>(taken));
    }
  }
}

} // namespace
