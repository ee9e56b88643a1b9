// The map symbol lookup and the AELF builder. The input is a map text, a
// configuration template and a resource blob, split at NUL bytes. The lookup must
// not throw or touch header bytes it does not own; when it succeeds, a flat flash
// image covering the program is made up and the builder must write exactly
// "AELF" + header + program + resources, or refuse and write nothing.
#include "image/AelfImage.h"
#include "image/Builder.h"
#include "image/MapSymbols.h"
#include "tests/fuzz/FuzzSupport.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

void fail(const char* what) {
  std::fprintf(stderr, "map symbols/builder: %s\n", what);
  std::abort();
}

uint32_t le32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

bool sameBytes(const uint8_t* a, const uint8_t* b, std::size_t from, std::size_t to) {
  return std::memcmp(a + from, b + from, to - from) == 0;
}

std::string put(const char* name, const std::string& s) {
  return fuzzWriteFile(name, reinterpret_cast<const uint8_t*>(s.data()), s.size());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzQuietStdout();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::vector<std::string> parts = fuzzSplit(data, size, '\0', 3);
  const std::string mapPath = put("__output__.map", parts[0]);
  const std::string cfgPath = put("test.cpp_CFG.bin", parts[1]);
  const std::string resPath = put("test.cpp_RES.bin", parts[2]);
  const std::string objectPath = fuzzScratchDir() + "/__target_out__.o";
  const std::string outPath = fuzzScratchDir() + "/project.alf";

  // The lookup alone: only entry..remoteRegTables (0-19), exeAddr and exeSize (28-35).
  uint8_t header[64];
  for (int i = 0; i < 64; ++i) header[i] = uint8_t(0xA5 ^ i);
  uint8_t original[64];
  std::memcpy(original, header, 64);
  const bool found = readMapSymbols(mapPath, header);
  if (!sameBytes(header, original, 20, 28) || !sameBytes(header, original, 36, 64))
    fail("lookup wrote outside its fields");
  if (!found) return 0;

  // A flat flash image that holds the program, when that is a sane size.
  const uint32_t exeAddr = le32(header + 28);
  const uint32_t exeSize = le32(header + 32);
  const uint64_t end = uint64_t(uint32_t(exeAddr - 0x08000000)) + exeSize;
  if (end > 0x50000) return 0;
  std::vector<uint8_t> flash(static_cast<std::size_t>(end));
  for (std::size_t i = 0; i < flash.size(); ++i) flash[i] = uint8_t(i * 131 + 7);
  fuzzWriteFile("__target_out__.o", flash.data(), flash.size());

  std::remove(outPath.c_str());
  const bool built = buildAelf(mapPath, cfgPath, objectPath, resPath, outPath);
  if (fuzzFileExists(outPath + ".part")) fail("temporary file left behind");
  if (!built) {
    if (fuzzFileExists(outPath)) fail("failed build left an output file");
    return 0;
  }
  const std::vector<uint8_t> out = fuzzReadFile(outPath);
  const std::string& cfg = parts[1];
  const std::string& res = parts[2];
  if (cfg.size() < 64) fail("built from a short template");
  if (out.size() != 68 + std::size_t(exeSize) + res.size()) fail("output size is not 68 + exeSize + resSize");
  if (std::memcmp(out.data(), "AELF", 4) != 0) fail("no magic");
  const uint8_t* h = out.data() + 4;
  if (le32(h + 28) != exeAddr || le32(h + 32) != exeSize || le32(h + 44) != res.size()) fail("header sizes wrong");
  if (std::memcmp(h, header, 20) != 0) fail("symbol addresses differ from the lookup");
  const uint8_t* templ = reinterpret_cast<const uint8_t*>(cfg.data());
  if (!sameBytes(h, templ, 20, 28) || !sameBytes(h, templ, 36, 44) || !sameBytes(h, templ, 48, 64))
    fail("template bytes not kept");
  if (std::memcmp(h + 64, flash.data() + (exeAddr - 0x08000000), exeSize) != 0)
    fail("program bytes not taken from exeAddr - 0x08000000");
  if (std::memcmp(h + 64 + exeSize, res.data(), res.size()) != 0) fail("resource bytes differ");
  return 0;
}
