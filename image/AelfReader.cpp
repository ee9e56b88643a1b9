#include "image/AelfImage.h"

#include "base/Console.h"
#include "image/InputFile.h"

#include <fstream>

namespace {

uint8_t imageArea[aelfImageAreaSize];

std::string sizeText(uint64_t size) { return std::to_string(size); }

bool hasMagic(std::istream& in) {
  uint8_t magic[4] = {};
  return readExactly(in, magic, sizeof magic) && readLe32(magic) == aelfMagic;
}

// The header block, refused when the file is too short for it or when header,
// program and resources would not fit into the image area or the file.
int readHeader(std::istream& in, const std::string& path, uint8_t* header) {
  const uint64_t fileSize = streamLength(in);
  if (!readExactly(in, header, aelfHeaderSize)) {
    consolePrint("File '" + path + "' is truncated: " + sizeText(fileSize) + " bytes, the header alone needs " +
                 sizeText(4 + aelfHeaderSize) + "\n");
    return aelfTruncated;
  }
  const uint64_t needed =
      uint64_t(aelfHeaderSize) + readLe32(header + headerExeSize) + readLe32(header + headerResSize);
  if (needed > aelfImageAreaSize) {
    consolePrint("File '" + path + "' is too large: " + sizeText(needed) +
                 " bytes of header, program and resources, the image area holds " + sizeText(aelfImageAreaSize) + "\n");
    return aelfTooLarge;
  }
  if (fileSize < 4 + needed) {
    consolePrint("File '" + path + "' is truncated: " + sizeText(fileSize) + " bytes, its header says " +
                 sizeText(4 + needed) + "\n");
    return aelfTruncated;
  }
  return aelfOk;
}

void fillSegments(const uint8_t* header, AelfImage& image) {
  const uint32_t exeSize = readLe32(header + headerExeSize);
  image.segments[0] = {readLe32(header + headerExeAddr), exeSize, imageArea + aelfHeaderSize};
  image.segments[1] = {readLe32(header + headerResAddr), readLe32(header + headerResSize),
                       imageArea + aelfHeaderSize + exeSize};
  image.segments[2] = {aelfHeaderAddress, aelfHeaderSize, imageArea};
}

} // namespace

const uint8_t* aelfImageArea() { return imageArea; }

// Oversized and truncated files are refused before anything is read into the
// area: an image must never run past the area, and a short file must not be sent
// to a device with the stale bytes of an earlier image in its gaps.
int readAelfImage(const std::string& path, AelfImage& image) {
  std::ifstream in(path, std::ios::binary);
  if (!in.is_open()) {
    consolePrint("Can't open aelf file '" + path + "'\n");
    return aelfCannotOpen;
  }
  if (!hasMagic(in)) {
    consolePrint("File '" + path + "' is not AELF file\n");
    return aelfNotAelf;
  }
  uint8_t header[aelfHeaderSize] = {};
  const int checked = readHeader(in, path, header);
  if (checked != aelfOk) return checked;
  const uint64_t bodySize = uint64_t(readLe32(header + headerExeSize)) + readLe32(header + headerResSize);
  if (!readExactly(in, imageArea + aelfHeaderSize, bodySize)) {
    consolePrint("File '" + path + "' could not be read\n");
    return aelfTruncated;
  }
  for (uint32_t i = 0; i < aelfHeaderSize; ++i) imageArea[i] = header[i];
  fillSegments(header, image);
  return aelfOk;
}
