// The AELF reader on arbitrary files. A loaded image must describe exactly the
// file's bytes, laid out header | program | resources inside the image area, and
// never more than the area holds; a refused file leaves the caller's image as it was.
#include "image/AelfImage.h"
#include "tests/fuzz/FuzzSupport.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void fail(const char* what) {
  std::fprintf(stderr, "image reader: %s\n", what);
  std::abort();
}

uint32_t le32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzQuietStdout();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string path = fuzzWriteFile("image.alf", data, size);

  AelfImage image;
  static const uint8_t marker = 0;
  for (AelfSegment& s : image.segments) s = {0xdeadbeef, 0xfeedface, &marker};
  const AelfImage before = image;

  const int result = readAelfImage(path, image);
  if (result != aelfOk) {
    if (result == 0 || std::memcmp(&before, &image, sizeof image) != 0) fail("a refused file changed the image");
    if (size >= 4 && std::memcmp(data, "AELF", 4) == 0 && result == aelfNotAelf) fail("magic refused");
    return 0;
  }

  if (size < 68 || std::memcmp(data, "AELF", 4) != 0) fail("loaded a file without magic and header");
  const uint8_t* header = data + 4;
  const uint32_t exeSize = le32(header + 32);
  const uint32_t resSize = le32(header + 44);
  const uint8_t* area = aelfImageArea();
  const AelfSegment& program = image.segments[0];
  const AelfSegment& resources = image.segments[1];
  const AelfSegment& block = image.segments[2];

  if (uint64_t(64) + exeSize + resSize > aelfImageAreaSize) fail("image larger than the area was loaded");
  if (uint64_t(68) + exeSize + resSize > size) fail("truncated file loaded");
  if (block.address != 0x0803FE00 || block.size != 64 || block.data != area) fail("header segment wrong");
  if (program.address != le32(header + 28) || program.size != exeSize || program.data != area + 64)
    fail("program segment wrong");
  if (resources.address != le32(header + 40) || resources.size != resSize || resources.data != area + 64 + exeSize)
    fail("resource segment wrong");
  if (std::memcmp(area, data + 4, 64 + std::size_t(exeSize) + resSize) != 0) fail("area differs from the file");
  return 0;
}
