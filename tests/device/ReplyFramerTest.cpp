// The reply framer on scripted bytes and times: each script feeds bytes at given
// moments and polls at others, expecting the frame to go on or to end with a verdict.
// An ended frame must hold exactly the bytes fed since the previous one ended.
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "device/ReplyFramer.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes frame(std::uint8_t command, std::uint32_t id0, const Bytes& data = {}) {
  FrameFields f;
  f.frameType = 1;
  f.id0 = id0;
  f.command = command;
  f.length = static_cast<std::uint32_t>(data.size());
  Bytes out(kFrameMax);
  out.resize(encodeFrame(out.data(), f, data.empty() ? nullptr : data.data()));
  return out;
}

Bytes slice(const Bytes& b, std::size_t from, std::size_t to) { return Bytes(b.begin() + from, b.begin() + to); }
Bytes join(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

const Bytes kReply = frame(CmdIdentify, 0x00c0ffee);
const Bytes kOther = frame(CmdCheckBlock, 1);
const Bytes kWithData = frame(CmdCheckBlock, 1, Bytes(4, 0x33));
const Bytes kCorrupt = [] {
  Bytes b = kReply;
  b.back() ^= 0x5A;
  return b;
}();
const Bytes kStray = {0xAA, 0xBB};
const Bytes kThree = [] { // one byte and its CRC
  const std::uint8_t one = 0x01;
  const std::uint16_t crc = crc16Of(&one, 1);
  return Bytes{one, static_cast<std::uint8_t>(crc), static_cast<std::uint8_t>(crc >> 8)};
}();
const Bytes kFullAndMore = join(frame(CmdWriteBlock, 1, Bytes(kFrameDataMax, 0x5A)), Bytes(20, 0x11));

// Bytes fed at a moment, or (no bytes) a poll at that moment with its expected verdict
// and, for an ended frame, its size.
struct Event {
  std::int64_t atUs;
  Bytes feed;
  FrameVerdict expect = FrameVerdict::open;
  std::size_t size = 0;
};
Event in(std::int64_t us, Bytes bytes) { return {us, std::move(bytes)}; }
Event at(std::int64_t us, FrameVerdict expect, std::size_t size = 0) { return {us, {}, expect, size}; }

struct Script {
  const char* name;
  ReplyFraming framing;
  std::uint32_t baud;
  std::vector<Event> events;
};

constexpr auto open = FrameVerdict::open;
constexpr auto good = FrameVerdict::good;
constexpr auto badCrc = FrameVerdict::badCrc;
constexpr auto tooShort = FrameVerdict::tooShort;
constexpr auto gap = ReplyFraming::gap;
constexpr auto fast = ReplyFraming::fast;

const Script kScripts[] = {
    {"gap: a reply ends 100 ms after its last byte",
     gap,
     9600,
     {in(0, kReply), at(99'999, open), at(100'000, good, 24)}},
    {"gap: a reply in three pieces is one frame",
     gap,
     9600,
     {in(0, slice(kReply, 0, 5)), at(50'000, open), in(50'000, slice(kReply, 5, 15)),
      in(120'000, slice(kReply, 15, 24)), at(219'999, open), at(220'000, good, 24)}},
    {"gap: a 99 ms pause continues the frame",
     gap,
     9600,
     {in(0, slice(kReply, 0, 10)), at(99'000, open), in(99'000, slice(kReply, 10, 24)), at(198'999, open),
      at(199'000, good, 24)}},
    {"gap: a 101 ms pause ends it",
     gap,
     9600,
     {in(0, slice(kReply, 0, 10)), at(101'000, badCrc, 10), in(101'000, slice(kReply, 10, 24)),
      at(201'000, badCrc, 14)}},
    {"gap: two replies back to back are one frame",
     gap,
     921600,
     {in(0, join(kReply, kOther)), at(100'000, badCrc, 48)}},
    {"gap: two replies a gap apart are two frames, the last one held",
     gap,
     921600,
     {in(0, kReply), at(100'000, good, 24), in(100'500, kOther), at(200'500, good, 24)}},
    {"gap: stray bytes 40 ms after a reply join it",
     gap,
     9600,
     {in(0, kReply), in(40'000, kStray), at(140'000, badCrc, 26)}},
    {"gap: a short frame", gap, 9600, {in(0, kStray), at(100'000, tooShort, 2)}},
    {"gap: three bytes are checked over the first", gap, 9600, {in(0, kThree), at(100'000, good, 3)}},
    {"gap: a bad CRC", gap, 9600, {in(0, kCorrupt), at(100'000, badCrc, 24)}},
    {"gap: a full frame ends at once", gap, 9600, {in(0, kFullAndMore), at(0, good, kFrameMax)}},
    {"gap: nothing fed is an empty frame", gap, 9600, {at(0, FrameVerdict::empty)}},
    {"fast: a good frame with data ends three character times after its last byte",
     fast,
     9600,
     {in(0, kWithData), at(3'124, open), at(3'125, good, 28)}},
    {"fast: the quiet time is at least 50 us", fast, 921600, {in(0, kWithData), at(49, open), at(50, good, 28)}},
    {"fast: a frame in two pieces is one frame",
     fast,
     921600,
     {in(0, slice(kWithData, 0, 10)), at(20'000, open), in(20'000, slice(kWithData, 10, 28)), at(20'049, open),
      at(20'050, good, 28)}},
    {"fast: a good reply ends at once, also in pieces",
     fast,
     9600,
     {in(0, kReply), at(0, good, 24), in(10, slice(kReply, 0, 10)), at(20'000, open), in(20'000, slice(kReply, 10, 24)),
      at(20'000, good, 24)}},
    {"fast: two replies back to back are one frame, ended by the gap",
     fast,
     921600,
     {in(0, join(kReply, kOther)), at(50, open), at(99'999, open), at(100'000, badCrc, 48)}},
    {"fast: two replies a pause apart are two frames, the last one held",
     fast,
     921600,
     {in(0, kReply), at(50, good, 24), in(1'000, kOther), at(1'050, good, 24)}},
    {"fast: a reply is taken before stray bytes 40 ms later",
     fast,
     921600,
     {in(0, kReply), at(50, good, 24), in(40'000, kStray), at(139'999, open), at(140'000, tooShort, 2)}},
    {"fast: a short frame waits the gap", fast, 921600, {in(0, kStray), at(99'999, open), at(100'000, tooShort, 2)}},
    {"fast: a bad CRC waits the gap", fast, 921600, {in(0, kCorrupt), at(50, open), at(100'000, badCrc, 24)}},
    {"fast: three good bytes wait the gap", fast, 921600, {in(0, kThree), at(50, open), at(100'000, good, 3)}},
    {"fast: a full frame ends at once", fast, 921600, {in(0, kFullAndMore), at(0, good, kFrameMax)}},
};

TEST(ReplyFramer, ScriptedBytesAndTimes) {
  for (const Script& script : kScripts) {
    SCOPED_TRACE(script.name);
    ReplyFramer framer;
    framer.begin(script.framing, script.baud);
    const auto start = ReplyFramer::Clock::time_point{} + std::chrono::hours(1);
    Bytes sinceEnd;
    bool ended = false;
    for (const Event& e : script.events) {
      SCOPED_TRACE(testing::Message() << "at " << e.atUs << " us");
      const auto now = start + std::chrono::microseconds(e.atUs);
      if (!e.feed.empty()) {
        if (ended) sinceEnd.clear();
        ended = false;
        const std::size_t room = framer.room();
        const std::size_t taken = framer.feed(e.feed.data(), e.feed.size(), now);
        EXPECT_EQ(taken, std::min(room, e.feed.size()));
        sinceEnd.insert(sinceEnd.end(), e.feed.begin(), e.feed.begin() + static_cast<std::ptrdiff_t>(taken));
        continue;
      }
      const FrameVerdict verdict = framer.poll(now);
      EXPECT_EQ(verdict, e.expect);
      if (verdict == FrameVerdict::open) continue;
      ended = true;
      EXPECT_EQ(framer.size(), e.size);
      EXPECT_EQ(Bytes(framer.bytes(), framer.bytes() + framer.size()), sinceEnd);
    }
  }
}

} // namespace
