// The shared helpers: identity text, the console route and the line's wire time.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/Console.h"
#include "base/IdentityText.h"
#include "base/Wire.h"

namespace {

TEST(IdentityText, FormatsAndParsesBack) {
  EXPECT_EQ(formatIdentity(0x00c0ffee, 0x12345678, 0x9abcdef0), "0x00c0ffee-12345678-9abcdef0");
  EXPECT_EQ(formatIdentity(0, 0, 1), "0x00000000-00000000-00000001");
  struct Case {
    const char* text;
    bool ok;
    std::uint32_t words[3];
  } cases[] = {
      {"0x00c0ffee-12345678-9ABCDEF0", true, {0x00c0ffee, 0x12345678, 0x9abcdef0}},
      {"1-2-3", true, {1, 2, 3}},
      {"0XfFfFfFfF-0-a", true, {0xffffffff, 0, 10}},
      {"", false, {}},
      {"0x1-2", false, {}},
      {"1-2-3-4", false, {}},
      {"1--3", false, {}},
      {"123456789-1-1", false, {}},
      {"g-1-1", false, {}},
      {"0x-1-1", false, {}},
      {"1-2-3 ", false, {}},
      {"+1-2-3", false, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    std::uint32_t w[3] = {7, 7, 7};
    EXPECT_EQ(parseIdentity(c.text, w[0], w[1], w[2]), c.ok);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(w[i], c.ok ? c.words[i] : 7u) << i;
  }
}

TEST(Console, RoutesKeepTheirBytesAndNameThePort) {
  std::vector<std::pair<std::string, std::string>> seen;
  const ConsoleSink before = setConsoleSink(
      [&](std::string_view text, std::string_view port) { seen.emplace_back(std::string(text), std::string(port)); });
  consolePuts("com port is not open!\r", "/dev/ttyUSB0");
  consolePrint("CRC error!\n");
  setConsoleSink(before);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].first, "com port is not open!\r\n");
  EXPECT_EQ(seen[0].second, "/dev/ttyUSB0");
  EXPECT_EQ(seen[1].first, "CRC error!\n");
  EXPECT_EQ(seen[1].second, "");
}

// Ten bits a byte, rounded up to the microsecond, at the rates of the ladder.
TEST(Wire, TimeOfBytesAtEachLadderRate) {
  struct Case {
    std::size_t bytes;
    std::uint32_t baudIndex;
    std::int64_t micros;
  } cases[] = {
      {24, 0, 25000}, {1, 1, 521}, {24, 2, 6250}, {24, 3, 2084}, {280, 4, 3039}, {3, 4, 33}, {0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    EXPECT_EQ(wireTime(c.bytes, kLadderBauds[c.baudIndex]).count(), c.micros) << kLadderBauds[c.baudIndex];
  }
  EXPECT_EQ(kLadderBauds[kTransferBaudIndex], 921600u); // the rate after Start
  EXPECT_EQ(wireTime(24, 0).count(), 0);
}

} // namespace
