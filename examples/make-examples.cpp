// Writes the binary files of the sample firmware build: the configuration
// template, the flat flash image and the resource blob. The contents are
// deterministic, so running it again gives the same files byte for byte.
#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

const uint32_t flashBase = 0x08000000;
const uint32_t exeAddr = 0x08004000; // above the 16 KiB bootloader
const uint32_t exeSize = 0x3172C;    // up to _etext in __output__.map
const uint32_t entryPoint = 0x08004101;
const uint32_t resAddr = 0x08036000;
const uint32_t resSize = 3125;
const uint32_t objectSize = 0x35800; // the flat image ends on a 2 KiB page

uint32_t seed = 0x1234567u;

uint8_t nextByte() {
  seed = seed * 1103515245u + 12345u;
  return uint8_t(seed >> 16);
}

void put32(std::vector<uint8_t>& bytes, uint32_t offset, uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[offset + i] = uint8_t(value >> (8 * i));
}

bool writeFile(const char* path, const std::vector<uint8_t>& bytes) {
  std::FILE* file = std::fopen(path, "wb");
  if (!file) return false;
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  return std::fclose(file) == 0 && ok;
}

std::vector<uint8_t> configTemplate() {
  // Fields the builder fills in are 0xff here; the rest is the device configuration.
  std::vector<uint8_t> cfg(64, 0xff);
  put32(cfg, 20, 0x00010007); // device family 7, configuration version 1
  put32(cfg, 24, 0x0000c200); // default line speed / 4
  put32(cfg, 36, 0x00000002); // number of Modbus groups
  put32(cfg, 40, resAddr);
  const char name[16] = "SAMPLE-APP 1.0";
  for (int i = 0; i < 16; ++i) cfg[48 + i] = uint8_t(name[i]);
  return cfg;
}

std::vector<uint8_t> flatImage() {
  std::vector<uint8_t> flash(objectSize, 0xff);
  // The bootloader: not part of the application, but in the flat image.
  for (uint32_t i = 0; i < 0x4000 - 0x800; ++i) flash[i] = nextByte();
  // The application: vector table, then code and constant data.
  const uint32_t start = exeAddr - flashBase;
  put32(flash, start, 0x20010000);                                             // initial stack pointer
  put32(flash, start + 4, entryPoint);                                         // reset vector
  for (uint32_t v = 8; v < 0x1c0; v += 4) put32(flash, start + v, 0x08004181); // default handler
  for (uint32_t i = start + 0x1c0; i < start + exeSize; ++i) flash[i] = nextByte();
  return flash;
}

std::vector<uint8_t> resources() {
  std::vector<uint8_t> res(resSize);
  const char magic[4] = {'R', 'E', 'S', '1'};
  for (int i = 0; i < 4; ++i) res[i] = uint8_t(magic[i]);
  put32(res, 4, resSize);
  for (uint32_t i = 8; i < resSize; ++i) res[i] = nextByte();
  return res;
}

} // namespace

int main() {
  const bool ok = writeFile("test.cpp_CFG.bin", configTemplate()) && writeFile("__target_out__.o", flatImage()) &&
                  writeFile("test.cpp_RES.bin", resources());
  if (!ok) {
    std::puts("make-examples: cannot write the sample files");
    return 1;
  }
  return 0;
}
