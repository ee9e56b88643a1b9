// The shared helpers: identity text, the console route and the line's wire time.
#include <gtest/gtest.h>

#include <tuple>

#include "base/Console.h"
#include "base/IdentityText.h"
#include "base/Wire.h"

TEST(IdentityText, FormatsAndParsesBack) {
  const std::pair<const char*, const char*> good[] = {{"0x00c0ffee-12345678-9ABCDEF0", "0x00c0ffee-12345678-9abcdef0"},
                                                      {"1-2-3", "0x00000001-00000002-00000003"},
                                                      {"0XfFfFfFfF-0-a", "0xffffffff-00000000-0000000a"}};
  std::uint32_t w[3] = {7, 7, 7};
  for (const char* bad : {"", "0x1-2", "1-2-3-4", "1--3", "123456789-1-1", "g-1-1", "0x-1-1", "1-2-3 ", "+1-2-3"})
    EXPECT_FALSE(parseIdentity(bad, w[0], w[1], w[2])) << bad;
  EXPECT_EQ(formatIdentity(w[0], w[1], w[2]), "0x00000007-00000007-00000007"); // left alone by refused texts
  for (const auto& [text, words] : good)
    EXPECT_TRUE(parseIdentity(text, w[0], w[1], w[2]) && formatIdentity(w[0], w[1], w[2]) == words) << text;
}

TEST(Console, RoutesKeepTheirBytesAndNameThePort) {
  std::string seen;
  const ConsoleSink before = setConsoleSink(
      [&](std::string_view text, std::string_view port) { seen.append(text).append("|").append(port).append(";"); });
  consolePuts("com port is not open!\r", "/dev/ttyUSB0");
  consolePrint("CRC error!\n");
  setConsoleSink(before);
  EXPECT_EQ(seen, "com port is not open!\r\n|/dev/ttyUSB0;CRC error!\n|;");
}

// Ten bits a byte, rounded up to the microsecond, at the rates of the ladder.
TEST(Wire, TimeOfBytesAtEachLadderRate) {
  const std::tuple<std::size_t, int, std::int64_t> cases[] = {{24, 0, 25000}, {1, 1, 521}, {24, 2, 6250}, {24, 3, 2084},
                                                              {280, 4, 3039}, {3, 4, 33},  {0, 0, 0}};
  for (const auto& [bytes, rate, micros] : cases)
    EXPECT_EQ(wireTime(bytes, kLadderBauds[rate]).count(), micros) << bytes << " bytes at " << kLadderBauds[rate];
  EXPECT_EQ(kLadderBauds[kTransferBaudIndex], 921600u); // the rate after Start
  EXPECT_EQ(wireTime(24, 0).count(), 0);
}
