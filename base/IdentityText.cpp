#include "base/IdentityText.h"

#include <cstdio>

bool parseHexWord(std::string_view text, std::uint32_t& out) {
  if (text.empty() || text.size() > 8) return false;
  std::uint32_t value = 0;
  for (const char c : text) {
    std::uint32_t digit = 0;
    if (c >= '0' && c <= '9')
      digit = static_cast<std::uint32_t>(c - '0');
    else if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f')
      digit = static_cast<std::uint32_t>((c | 0x20) - 'a' + 10);
    else
      return false;
    value = value << 4 | digit;
  }
  out = value;
  return true;
}

std::string formatIdentity(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2) {
  char text[40];
  std::snprintf(text, sizeof text, "0x%08x-%08x-%08x", static_cast<unsigned>(id0), static_cast<unsigned>(id1),
                static_cast<unsigned>(id2));
  return text;
}

bool parseIdentity(std::string_view text, std::uint32_t& id0, std::uint32_t& id1, std::uint32_t& id2) {
  if (text.size() > 2 && text[0] == '0' && (text[1] | 0x20) == 'x') text.remove_prefix(2);
  const std::size_t a = text.find('-');
  const std::size_t b = a == std::string_view::npos ? a : text.find('-', a + 1);
  if (b == std::string_view::npos) return false;
  std::uint32_t words[3];
  if (!parseHexWord(text.substr(0, a), words[0]) || !parseHexWord(text.substr(a + 1, b - a - 1), words[1]) ||
      !parseHexWord(text.substr(b + 1), words[2]))
    return false;
  id0 = words[0];
  id1 = words[1];
  id2 = words[2];
  return true;
}
