#include "sim/RequestParser.h"

#include "device/Frame.h"
#include "tests/sim/SimTestFrames.h"

#include <gtest/gtest.h>

namespace {

const DeviceIdentity kMe{};
constexpr std::int64_t kSilence = 50000;

std::vector<ParsedFrame> feed(RequestParser& p, const std::vector<std::uint8_t>& bytes, std::int64_t us) {
  return p.feed(bytes.data(), bytes.size(), us, kSilence);
}

std::vector<std::uint8_t> join(std::initializer_list<std::vector<std::uint8_t>> parts) {
  std::vector<std::uint8_t> out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

TEST(SimRequestParser, FindsFramesSplitAtEveryByte) {
  const auto data = pattern(256, 1);
  const auto stream = join({request(CmdIdentify, broadcastIds(), 0, 0),
                            request(CmdWriteBlock, kMe, 0x08004000, 256, data.data()), request(CmdFinish, kMe, 0, 0)});
  RequestParser p;
  std::vector<ParsedFrame> got;
  for (std::size_t i = 0; i < stream.size(); ++i) {
    auto f = p.feed(&stream[i], 1, static_cast<std::int64_t>(i), kSilence);
    got.insert(got.end(), f.begin(), f.end());
  }
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[0].bytes.size(), 24u);
  EXPECT_EQ(got[1].bytes.size(), 280u);
  EXPECT_EQ(got[1].firstByteUs, 24);
  EXPECT_EQ(got[1].lastByteUs, 303);
  EXPECT_EQ(decodeFields(got[2].bytes.data()).command, CmdFinish);
  EXPECT_EQ(p.pending(), 0u);
  EXPECT_EQ(p.droppedBytes(), 0u);
}

TEST(SimRequestParser, SeveralFramesInOneChunk) {
  const auto stream =
      join({request(CmdCheckBlock, kMe, 0x08004000, 256), request(CmdCheckBlock, kMe, 0x08004100, 256)});
  RequestParser p;
  const auto got = feed(p, stream, 7);
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(decodeFields(got[1].bytes.data()).address, 0x08004100u);
  EXPECT_EQ(got[1].firstByteUs, 7);
}

TEST(SimRequestParser, ResynchronisesAfterGarbageAndBadFrames) {
  auto bad = request(CmdIdentify, broadcastIds(), 0, 0);
  bad[5] ^= 0x40;
  const auto data = pattern(256, 77);
  const auto stream = join({{0x55, 0x0b, 0xff, 0x00, 0x13},
                            bad,
                            request(CmdStart, kMe, 0, 4096),
                            {0x01, 0x02},
                            request(CmdWriteBlock, kMe, 0x08004000, 256, data.data())});
  RequestParser p;
  const auto got = feed(p, stream, 0);
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(decodeFields(got[0].bytes.data()).command, CmdStart);
  EXPECT_EQ(got[1].bytes.size(), 280u);
  EXPECT_EQ(p.droppedBytes(), 5u + 24u + 2u);
}

TEST(SimRequestParser, DropsAPartialFrameAfterSilence) {
  const auto frame = request(CmdIdentify, broadcastIds(), 0, 0);
  RequestParser p;
  EXPECT_TRUE(p.feed(frame.data(), 10, 0, kSilence).empty());
  EXPECT_TRUE(p.feed(frame.data() + 10, 14, kSilence + 1, kSilence).empty());
  EXPECT_EQ(p.pending(), 14u); // only the tail, which does not check, remains
  // The next whole frame still gets through (the stale tail is dropped for silence).
  const auto got = feed(p, frame, 3 * kSilence);
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].bytes, frame);
  // Within the silence the pieces join up.
  RequestParser q;
  EXPECT_TRUE(q.feed(frame.data(), 10, 0, kSilence).empty());
  EXPECT_EQ(q.feed(frame.data() + 10, 14, kSilence, kSilence).size(), 1u);
}

TEST(SimRequestParser, ResetForgetsPartialFrames) {
  const auto frame = request(CmdIdentify, broadcastIds(), 0, 0);
  RequestParser p;
  p.feed(frame.data(), 12, 0, kSilence);
  p.reset();
  EXPECT_TRUE(p.feed(frame.data() + 12, 12, 1, kSilence).empty());
}

TEST(SimRequestParser, HoldsBoundedMemoryOnEndlessGarbage) {
  std::vector<std::uint8_t> junk(100000);
  std::uint32_t s = 1;
  for (auto& b : junk) b = static_cast<std::uint8_t>((s = s * 1103515245u + 12345u) >> 16);
  RequestParser p;
  for (int i = 0; i < 5; ++i) {
    feed(p, junk, i);
    EXPECT_LE(p.pending(), kFrameMax);
  }
  // And it still finds a frame afterwards.
  const auto got =
      feed(p, join({request(CmdIdentify, broadcastIds(), 0, 0), request(CmdIdentify, broadcastIds(), 0, 0)}), 10);
  EXPECT_GE(got.size(), 1u);
}

} // namespace
