#pragma once
// Builds an AELF image from the firmware's link map, the configuration template
// (the first 64 bytes become the header block), the flat flash image whose byte 0
// is device address 0x08000000, and the resource blob.
#include <string>

// The start screen's fixed paths for "build aelf", two folders above the working
// directory; the command line's defaults too.
struct AelfBuildPaths {
  const char* map;
  const char* cfg;
  const char* object;
  const char* res;
  const char* output;
};
inline constexpr AelfBuildPaths defaultAelfBuildPaths = {"./../../__output__.map", "./../../test.cpp_CFG.bin",
                                                         "./../../__target_out__.o", "./../../test.cpp_RES.bin",
                                                         "./../../project.alf"};

// Prints its progress on the console (base/Console.h); true when the image was written.
bool buildAelf(const std::string& mapPath, const std::string& cfgPath, const std::string& objectPath,
               const std::string& resPath, const std::string& outPath);
