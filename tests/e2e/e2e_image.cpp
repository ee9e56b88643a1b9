// make OUT EXEADDR EXESIZE RESADDR RESSIZE [SEED]: an AELF image of pseudo-random bytes.
// expect IMAGE OUT: the 256 KiB flash after flashing IMAGE: erased but for each block the
// sequence writes, from the image area as read (a partial block carries what follows it).
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "image/AelfImage.h"

namespace {

std::uint32_t number(const char* text) { return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 0)); }

bool write(const char* path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return out.good();
}

} // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "make" && argc >= 7) {
    std::uint32_t seed = argc > 7 ? number(argv[7]) : 1;
    std::vector<std::uint8_t> bytes(4 + 64 + std::size_t(number(argv[4])) + number(argv[6]));
    for (auto& b : bytes) b = static_cast<std::uint8_t>((seed = seed * 1664525u + 1013904223u) >> 24);
    bytes[0] = 'A', bytes[1] = 'E', bytes[2] = 'L', bytes[3] = 'F';
    const std::size_t fields[] = {headerExeAddr, headerExeSize, headerResAddr, headerResSize};
    for (int i = 0; i < 4; ++i) writeLe32(bytes.data() + 4 + fields[i], number(argv[3 + i]));
    return write(argv[2], bytes) ? 0 : 1;
  }
  AelfImage image;
  if (what != "expect" || argc < 4) return 2;
  if (readAelfImage(argv[2], image) != aelfOk) return 1;
  const std::uint32_t base = 0x08000000, size = 256 * 1024;
  std::vector<std::uint8_t> flash(size, 0xFF);
  const std::uint8_t* area = aelfImageArea();
  for (const AelfSegment& seg : image.segments) {
    std::uint32_t offset = 0;
    do {
      for (std::uint32_t i = 0; i < 256; ++i) {
        const std::uint64_t at = std::uint64_t(seg.address) + offset + i,
                            from = std::uint64_t(seg.data - area) + offset + i;
        if (at >= base && at < base + size) flash[at - base] = from < aelfImageAreaSize ? area[from] : 0xFF;
      }
      offset += 256;
    } while (offset < seg.size);
  }
  return write(argv[3], flash) ? 0 : 1;
}
