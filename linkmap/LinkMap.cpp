#include "linkmap/LinkMap.h"

#include "linkmap/ReadLines.h"

#include <cstdint>

namespace {

const uint32_t notFound = 0xFFFFFFFFu;

uint32_t position(std::string::size_type pos) {
  return pos == std::string::npos ? notFound : static_cast<uint32_t>(pos);
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
  // Widen a short low group: zeros go in after "0x" and three digits. A text too
  // short to reach that place gets its zeros at its end instead.
  while (address.size() < 9) {
    const std::size_t at = address.size() < 5 ? address.size() : 5;
    address.insert(at, 1, '0');
  }
  return address;
}

void readLinkMap(std::istream& in, LinkMap& table) {
  std::string previous;
  std::string line;
  while (readTextLine(in, line)) {
    const uint32_t n = static_cast<uint32_t>(line.size());
    if (n < 4 || line.find("0x80") == std::string::npos) {
      previous = line;
      continue;
    }
    const std::string address = linkMapAddress(line);

    const uint32_t tab = position(line.find('\t'));
    const uint32_t blank = position(line.find(' '));
    std::string name;
    if (tab == 0 || blank == 0) {
      name = previous;
    } else {
      // A tab ends the name one character early; that is how the maps are read.
      const uint32_t length = (blank - 1u < tab) ? blank : tab - 1u;
      if (length > n) return; // neither tab nor blank: the rest of the map is ignored
      name = line.substr(0, length);
    }
    table[name] = address;
    previous = name;
  }
}
