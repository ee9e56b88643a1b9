#pragma once
// Reading helpers shared by the AELF reader and builder.
#include <cstdint>
#include <istream>

// The length of a seekable stream; the read position is left where it was.
inline uint64_t streamLength(std::istream& in) {
  const std::streampos here = in.tellg();
  in.seekg(0, std::ios::end);
  const std::streamoff end = in.tellg();
  in.seekg(here);
  return end < 0 ? 0 : static_cast<uint64_t>(end);
}

// Reads exactly `size` bytes; false when the stream ends sooner.
inline bool readExactly(std::istream& in, void* to, uint64_t size) {
  in.read(static_cast<char*>(to), static_cast<std::streamsize>(size));
  return static_cast<uint64_t>(in.gcount()) == size;
}
