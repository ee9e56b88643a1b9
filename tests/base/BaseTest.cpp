// The shared helpers: identity text and the console route.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/Console.h"
#include "base/IdentityText.h"

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

} // namespace
