#pragma once
// An AELF application image: "AELF", a 64-byte header block, the program bytes
// and the resource bytes. Loaded, it is three segments pointing into one
// process-wide image area laid out header | program | resources with no gap.
#include <cstdint>
#include <string>

#include "base/Bytes.h"

const uint32_t aelfMagic = 0x464C4541; // "AELF" read as a little-endian word
const uint32_t aelfHeaderSize = 64;
const uint32_t aelfHeaderAddress = 0x0803FE00; // where the header block stands in the device
const uint32_t aelfImageAreaSize = 0x48000;

// Byte offsets of the header fields.
enum AelfHeaderField : uint32_t {
  headerEntry = 0,
  headerLoop = 4,
  headerHGroupsTable = 8,
  headerIGroupsTable = 12,
  headerRemoteRegTables = 16,
  headerExeAddr = 28,
  headerExeSize = 32,
  headerResAddr = 40,
  headerResSize = 44,
};

struct AelfSegment {
  uint32_t address = 0;
  uint32_t size = 0;
  const uint8_t* data = nullptr; // into the image area; not owned
};

// Segment 0 program, 1 resources, 2 header block: also the order of writing.
struct AelfImage {
  AelfSegment segments[3];
};

// Result codes of readAelfImage.
enum : int {
  aelfOk = 0,
  aelfCannotOpen = -1,
  aelfNotAelf = -2,
  aelfTooLarge = -3,  // header block + program + resources exceed the image area
  aelfTruncated = -4, // the file ends before the sizes in its header say
};

// Loads `path` into the image area and fills `image`. Prints the reason of a
// failure on the console; a failed read leaves the area and `image` as they were.
int readAelfImage(const std::string& path, AelfImage& image);

// The process-wide image area (read-only view, for tests and tools).
const uint8_t* aelfImageArea();
