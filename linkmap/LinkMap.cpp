#include "linkmap/LinkMap.h"

#include "linkmap/ReadLines.h"

#include <cstdint>

namespace {

const uint32_t notFound = 0xFFFFFFFFu;

uint32_t position(std::string::size_type pos) {
  return pos == std::string::npos ? notFound : static_cast<uint32_t>(pos);
}

// Widens a short low group: zeros go in after "0x" and three digits, whatever the
// length of the high group. A text too short to reach that place gets its zeros
// at its end instead.
void widen(std::string& address) {
  while (address.size() < 9) {
    const std::size_t at = address.size() < 5 ? address.size() : 5;
    address.insert(at, 1, '0');
  }
}

// The name of a symbol line. A line that begins with a tab or a blank carries the
// address of the remembered name; false when the line holds neither a tab nor a
// blank, which ends the reading of the map.
bool symbolName(const std::string& line, const std::string& previous, std::string& name) {
  const uint32_t tab = position(line.find('\t'));
  const uint32_t blank = position(line.find(' '));
  if (tab == 0 || blank == 0) {
    name = previous;
    return true;
  }
  // A tab ends the name one character early; that is how the maps are read.
  const uint32_t length = (blank - 1u < tab) ? blank : tab - 1u;
  if (length > line.size()) return false;
  name = line.substr(0, length);
  return true;
}

} // namespace

std::string linkMapAddress(const std::string& line) {
  const std::size_t p = line.find("0x");
  if (p == std::string::npos) return std::string();
  const std::size_t q = line.find('\'');
  const std::size_t t = line.find('\t', p);
  const std::size_t s = line.find(' ', p);
  const std::size_t end = t < s ? t : s;

  std::string address;
  if (q == std::string::npos || q < p) {
    // No apostrophe behind the "0x": take the text up to the next tab or blank.
    address = line.substr(p, end == std::string::npos ? std::string::npos : end - p);
  } else {
    address = line.substr(p, q - p);
    // A blank or tab inside the high group leaves the low group running to the line end.
    if (end == std::string::npos || end <= q)
      address += line.substr(q + 1);
    else
      address += line.substr(q + 1, end - q - 1);
  }
  widen(address);
  return address;
}

void readLinkMap(std::istream& in, LinkMap& table) {
  std::string previous;
  std::string line;
  while (readTextLine(in, line)) {
    if (line.size() < 4 || line.find("0x80") == std::string::npos) {
      previous = line;
      continue;
    }
    std::string name;
    if (!symbolName(line, previous, name)) return; // the rest of the map is ignored
    table[name] = linkMapAddress(line);
    previous = name;
  }
}
