#pragma once
// Builds an AELF image from the firmware's link map, the configuration template
// (the first 64 bytes become the header block), the flat flash image whose byte 0
// is device address 0x08000000, and the resource blob.
#include <string>

// Prints its progress on standard output; true when the image was written.
bool buildAelf(const std::string& mapPath, const std::string& cfgPath, const std::string& objectPath,
               const std::string& resPath, const std::string& outPath);
