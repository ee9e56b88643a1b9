#include "image/AelfImage.h"

#include <fstream>
#include <iostream>

namespace {

uint8_t imageArea[aelfImageAreaSize];

} // namespace

const uint8_t* aelfImageArea() { return imageArea; }

// Oversized and truncated files are refused before anything is read into the
// area: an image must never run past the area, and a short file must not be sent
// to a device with the stale bytes of an earlier image in its gaps.
int readAelfImage(const std::string& path, AelfImage& image) {
  std::ifstream in(path, std::ios::binary);
  if (!in.is_open()) {
    std::cout << "Can't open aelf file '" << path << "'\n" << std::flush;
    return aelfCannotOpen;
  }
  uint8_t magic[4] = {};
  in.read(reinterpret_cast<char*>(magic), 4);
  if (in.gcount() != 4 || readLe32(magic) != aelfMagic) {
    std::cout << "File '" << path << "' is not AELF file\n" << std::flush;
    return aelfNotAelf;
  }

  in.seekg(0, std::ios::end);
  const uint64_t fileSize = static_cast<uint64_t>(in.tellg());
  in.seekg(4, std::ios::beg);

  uint8_t header[aelfHeaderSize] = {};
  in.read(reinterpret_cast<char*>(header), aelfHeaderSize);
  if (in.gcount() != aelfHeaderSize) {
    std::cout << "File '" << path << "' is truncated: " << fileSize << " bytes, the header alone needs "
              << 4 + aelfHeaderSize << "\n"
              << std::flush;
    return aelfTruncated;
  }
  const uint32_t exeSize = readLe32(header + headerExeSize);
  const uint32_t resSize = readLe32(header + headerResSize);
  const uint64_t needed = uint64_t(aelfHeaderSize) + exeSize + resSize;
  if (needed > aelfImageAreaSize) {
    std::cout << "File '" << path << "' is too large: " << needed
              << " bytes of header, program and resources, the image area holds " << aelfImageAreaSize << "\n"
              << std::flush;
    return aelfTooLarge;
  }
  if (fileSize < 4 + needed) {
    std::cout << "File '" << path << "' is truncated: " << fileSize << " bytes, its header says " << 4 + needed << "\n"
              << std::flush;
    return aelfTruncated;
  }

  in.read(reinterpret_cast<char*>(imageArea + aelfHeaderSize), exeSize + resSize);
  if (static_cast<uint64_t>(in.gcount()) != uint64_t(exeSize) + resSize) {
    std::cout << "File '" << path << "' could not be read\n" << std::flush;
    return aelfTruncated;
  }
  for (uint32_t i = 0; i < aelfHeaderSize; ++i) imageArea[i] = header[i];

  image.segments[0] = {readLe32(header + headerExeAddr), exeSize, imageArea + aelfHeaderSize};
  image.segments[1] = {readLe32(header + headerResAddr), resSize, imageArea + aelfHeaderSize + exeSize};
  image.segments[2] = {aelfHeaderAddress, aelfHeaderSize, imageArea};
  return aelfOk;
}
