// The AELF reader on the whole input; the map symbol lookup and the builder on it split at
// NUL bytes into a link map, a configuration template and resources, the result read back.
#include "base/Bytes.h"
#include "image/AelfImage.h"
#include "image/Builder.h"
#include "image/MapSymbols.h"
#include "tests/fuzz/FuzzSupport.h"

#include <cstring>

namespace {

void readImage(const std::string& file) {
  AelfImage image{{{1, 2, nullptr}, {3, 4, nullptr}, {5, 6, nullptr}}};
  const AelfImage before = image;
  const int result = readAelfImage(fuzzPut("image.alf", file), image);
  const bool magic = file.compare(0, 4, "AELF") == 0;
  if (result != aelfOk) {
    fuzzCheck(result < 0 && std::memcmp(&before, &image, sizeof image) == 0, "a refused file changed the image");
    return fuzzCheck(result != aelfNotAelf || !magic, "magic refused");
  }
  fuzzCheck(file.size() >= 68 && magic, "loaded a file without magic and header");
  const uint8_t* h = reinterpret_cast<const uint8_t*>(file.data()) + 4;
  const uint32_t exeSize = readLe32(h + 32), resSize = readLe32(h + 44);
  fuzzCheck(64ull + exeSize + resSize <= 0x48000, "image larger than the area loaded");
  fuzzCheck(68ull + exeSize + resSize <= file.size(), "truncated file loaded");
  const uint8_t* area = aelfImageArea();
  const AelfSegment want[3] = {
      {readLe32(h + 28), exeSize, area + 64}, {readLe32(h + 40), resSize, area + 64 + exeSize}, {0x0803FE00, 64, area}};
  fuzzCheck(std::memcmp(want, image.segments, sizeof want) == 0, "segments wrong");
  fuzzCheck(std::memcmp(area, h, 64 + std::size_t(exeSize) + resSize) == 0, "area differs from the file");
}

void buildImage(const std::vector<std::string>& parts) {
  const std::string map = fuzzPut("__output__.map", parts[0]), cfg = fuzzPut("test.cpp_CFG.bin", parts[1]);
  uint8_t header[64], original[64];
  for (int i = 0; i < 64; ++i) header[i] = original[i] = uint8_t(0xA5 ^ i);
  const bool found = readMapSymbols(map, header);
  // Its fields: entry..remoteRegTables (0-19), exeAddr and exeSize (28-35).
  fuzzCheck(!std::memcmp(header + 20, original + 20, 8) && !std::memcmp(header + 36, original + 36, 28),
            "lookup wrote outside its fields");
  const uint32_t exeAddr = readLe32(header + 28) - 0x08000000, exeSize = readLe32(header + 32);
  if (!found || uint64_t(exeAddr) + exeSize > 0x50000) return;
  std::string flash(exeAddr + exeSize + 16, '\0'); // longer than the program: an offset off by one shows
  for (std::size_t i = 0; i < flash.size(); ++i) flash[i] = char(i * 131 + 7);
  const std::string out = fuzzPath("project.alf");
  std::remove(out.c_str());
  const bool built =
      buildAelf(map, cfg, fuzzPut("__target_out__.o", flash), fuzzPut("test.cpp_RES.bin", parts[2]), out);
  fuzzCheck(built == std::filesystem::exists(out) && (!built || parts[1].size() >= 64), "output wrong or missing");
  if (!built) return;
  std::string want = "AELF" + parts[1].substr(0, 64) + flash.substr(exeAddr, exeSize) + parts[2];
  const char* fields = reinterpret_cast<const char*>(header);
  want.replace(4, 20, fields, 20).replace(32, 8, fields + 28, 8);
  for (int i = 0; i < 4; ++i) want[48 + i] = char(parts[2].size() >> (8 * i));
  fuzzCheck(fuzzRead(out) == want, "output is not AELF + header + program at exeAddr + resources");
  readImage(want);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  readImage(std::string(reinterpret_cast<const char*>(data), size));
  buildImage(fuzzSplit(data, size, 3));
  return 0;
}
