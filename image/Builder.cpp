#include "image/Builder.h"

#include "image/AelfImage.h"
#include "image/MapSymbols.h"
#include "base/AtomicFile.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <vector>

namespace {

const uint32_t flashBase = 0x08000000;

void printValue(const char* format, uint32_t value) {
  char text[32];
  std::snprintf(text, sizeof text, format, static_cast<unsigned>(value));
  std::cout << text;
}

uint64_t fileLength(std::ifstream& in) {
  in.seekg(0, std::ios::end);
  const std::streamoff end = in.tellg();
  in.seekg(0, std::ios::beg);
  return end < 0 ? 0 : static_cast<uint64_t>(end);
}

} // namespace

// Short inputs and images too large for a device's image area are refused with
// a message, and nothing is written; the output appears only complete.
bool buildAelf(const std::string& mapPath, const std::string& cfgPath, const std::string& objectPath,
               const std::string& resPath, const std::string& outPath) {
  uint8_t header[aelfHeaderSize] = {};
  {
    std::ifstream cfg(cfgPath, std::ios::binary);
    if (!cfg.is_open()) {
      // The message names the map file; that is what users of the tool know it by.
      std::cout << "Can't open cfg file '" << mapPath << "'\n" << std::flush;
      return false;
    }
    cfg.read(reinterpret_cast<char*>(header), aelfHeaderSize);
    if (cfg.gcount() != aelfHeaderSize) {
      std::cout << "cfg file '" << cfgPath << "' is shorter than " << aelfHeaderSize << " bytes\n" << std::flush;
      return false;
    }
  }

  if (!readMapSymbols(mapPath, header)) return false;

  const uint32_t exeAddr = readLe32(header + headerExeAddr);
  const uint32_t exeSize = readLe32(header + headerExeSize);
  std::cout << "\n========\n";
  printValue("exeAddr: %08x\n", exeAddr);
  printValue("exeSize: %08x\n", exeSize);
  printValue("entry: %08x\n", readLe32(header + headerEntry));
  printValue("loop: %08x\n", readLe32(header + headerLoop));
  std::cout << "\n========\n" << std::flush;

  std::vector<char> resources;
  {
    std::ifstream res(resPath, std::ios::binary);
    if (!res.is_open()) {
      std::cout << "Can't open cfg file '" << resPath << "'\n" << std::flush;
      return false;
    }
    const uint64_t resLength = fileLength(res);
    const uint64_t imageSize = uint64_t(aelfHeaderSize) + exeSize + resLength;
    if (imageSize > aelfImageAreaSize) {
      std::cout << "AELF image too large: " << imageSize << " bytes of header, program and resources, at most "
                << aelfImageAreaSize << "\n"
                << std::flush;
      return false;
    }
    resources.resize(static_cast<std::size_t>(resLength));
    res.read(resources.data(), static_cast<std::streamsize>(resources.size()));
    if (static_cast<uint64_t>(res.gcount()) != resLength) {
      std::cout << "Can't read res file '" << resPath << "'\n" << std::flush;
      return false;
    }
    writeLe32(header + headerResSize, static_cast<uint32_t>(resLength));
  }

  std::vector<char> program(exeSize);
  {
    std::ifstream object(objectPath, std::ios::binary);
    if (!object.is_open()) {
      std::cout << "Can't open elf file '" << objectPath << "'\n" << std::flush;
      return false;
    }
    // The flat image starts at the flash base; an exeAddr below it wraps far past the end.
    const uint32_t offset = exeAddr - flashBase;
    const uint64_t length = fileLength(object);
    if (uint64_t(offset) + exeSize > length) {
      std::cout << "elf file '" << objectPath << "' ends at offset 0x" << std::hex << length
                << ", the program needs up to 0x" << uint64_t(offset) + exeSize << std::dec << "\n"
                << std::flush;
      return false;
    }
    object.seekg(offset, std::ios::beg);
    object.read(program.data(), static_cast<std::streamsize>(program.size()));
    if (static_cast<uint64_t>(object.gcount()) != exeSize) {
      std::cout << "Can't read elf file '" << objectPath << "'\n" << std::flush;
      return false;
    }
  }

  AtomicFile output;
  if (!output.open(outPath, true)) {
    std::cout << "Can't create output file '" << outPath << "'\n" << std::flush;
    return false;
  }
  uint8_t magic[4];
  writeLe32(magic, aelfMagic);
  std::ostream& out = output.stream();
  out.write(reinterpret_cast<const char*>(magic), 4);
  out.write(reinterpret_cast<const char*>(header), aelfHeaderSize);
  out.write(program.data(), static_cast<std::streamsize>(program.size()));
  out.write(resources.data(), static_cast<std::streamsize>(resources.size()));
  if (!output.commit()) {
    std::cout << "Can't create output file '" << outPath << "'\n" << std::flush;
    return false;
  }
  std::cout << "AELF file '" << outPath << "' has been successfully created\n" << std::flush;
  return true;
}
