// Helper of the end-to-end tests.
//   make OUT EXEADDR EXESIZE RESADDR RESSIZE [SEED]
//       writes an AELF image with pseudo-random header, program and resource bytes.
//   expect IMAGE OUT
//       writes the 256 KiB flash a device must hold after flashing IMAGE: erased
//       (0xFF) except for every 256-byte block the flash sequence writes, filled from
//       the image area as the reader laid it out (so partial blocks carry the bytes
//       that follow their segment in the area, and a segment of size 0 one block).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "image/AelfImage.h"

namespace {

constexpr std::uint32_t kFlashBase = 0x08000000;
constexpr std::uint32_t kFlashSize = 256 * 1024;

std::uint32_t number(const char* text) { return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 0)); }

int make(int argc, char** argv) {
  if (argc < 7) return 2;
  const std::uint32_t exeAddr = number(argv[3]), exeSize = number(argv[4]);
  const std::uint32_t resAddr = number(argv[5]), resSize = number(argv[6]);
  std::uint32_t seed = argc > 7 ? number(argv[7]) : 1;
  auto next = [&seed] {
    seed = seed * 1664525u + 1013904223u;
    return static_cast<std::uint8_t>(seed >> 24);
  };
  std::vector<std::uint8_t> bytes(4 + 64 + std::size_t(exeSize) + resSize);
  for (auto& b : bytes) b = next();
  bytes[0] = 'A', bytes[1] = 'E', bytes[2] = 'L', bytes[3] = 'F';
  writeLe32(bytes.data() + 4 + headerExeAddr, exeAddr);
  writeLe32(bytes.data() + 4 + headerExeSize, exeSize);
  writeLe32(bytes.data() + 4 + headerResAddr, resAddr);
  writeLe32(bytes.data() + 4 + headerResSize, resSize);
  std::ofstream out(argv[2], std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return out.good() ? 0 : 1;
}

int expect(int argc, char** argv) {
  if (argc < 4) return 2;
  AelfImage image;
  if (readAelfImage(argv[2], image) != aelfOk) return 1;
  std::vector<std::uint8_t> flash(kFlashSize, 0xFF);
  const std::uint8_t* area = aelfImageArea();
  for (const AelfSegment& seg : image.segments) {
    std::uint32_t offset = 0;
    do {
      for (std::uint32_t i = 0; i < 256; ++i) {
        const std::uint64_t at = std::uint64_t(seg.address) + offset + i;
        const std::uint64_t from = std::uint64_t(seg.data - area) + offset + i;
        if (at < kFlashBase || at >= kFlashBase + kFlashSize) continue;
        flash[at - kFlashBase] = from < aelfImageAreaSize ? area[from] : 0xFF;
      }
      offset += 256;
    } while (offset < seg.size);
  }
  std::ofstream out(argv[3], std::ios::binary);
  out.write(reinterpret_cast<const char*>(flash.data()), static_cast<std::streamsize>(flash.size()));
  return out.good() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "make") return make(argc, argv);
  if (what == "expect") return expect(argc, argv);
  std::fprintf(stderr, "usage: e2e_image make OUT EXEADDR EXESIZE RESADDR RESSIZE [SEED] | expect IMAGE OUT\n");
  return 2;
}
