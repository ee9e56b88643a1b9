#include "image/Builder.h"

#include "base/AtomicFile.h"
#include "base/Console.h"
#include "image/AelfImage.h"
#include "image/InputFile.h"
#include "image/MapSymbols.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

const uint32_t flashBase = 0x08000000;

std::string quoted(const char* before, const std::string& path) { return before + path + "'\n"; }

// Steps of the build, in order. Each prints its own failure and returns false.

// The header block starts as the template's first 64 bytes.
bool readTemplate(const std::string& cfgPath, const std::string& mapPath, uint8_t* header) {
  std::ifstream cfg(cfgPath, std::ios::binary);
  if (!cfg.is_open()) {
    // Deliberately the map file's name, not the template's: users know the message by it.
    consolePrint(quoted("Can't open cfg file '", mapPath));
    return false;
  }
  if (!readExactly(cfg, header, aelfHeaderSize)) {
    consolePrint("cfg file '" + cfgPath + "' is shorter than " + std::to_string(aelfHeaderSize) + " bytes\n");
    return false;
  }
  return true;
}

void printField(const char* format, const uint8_t* header, uint32_t offset) {
  char text[32];
  std::snprintf(text, sizeof text, format, static_cast<unsigned>(readLe32(header + offset)));
  consolePrint(text);
}

void printSummary(const uint8_t* header) {
  consolePrint("\n========\n");
  printField("exeAddr: %08x\n", header, headerExeAddr);
  printField("exeSize: %08x\n", header, headerExeSize);
  printField("entry: %08x\n", header, headerEntry);
  printField("loop: %08x\n", header, headerLoop);
  consolePrint("\n========\n");
}

// The whole resource file; refused when header, program and resources would not
// fit into a device's image area.
bool readResources(const std::string& resPath, uint32_t exeSize, std::vector<char>& resources) {
  std::ifstream res(resPath, std::ios::binary);
  if (!res.is_open()) {
    consolePrint(quoted("Can't open cfg file '", resPath)); // "cfg" for this file too, as users know it
    return false;
  }
  const uint64_t length = streamLength(res);
  const uint64_t imageSize = uint64_t(aelfHeaderSize) + exeSize + length;
  if (imageSize > aelfImageAreaSize) {
    consolePrint("AELF image too large: " + std::to_string(imageSize) +
                 " bytes of header, program and resources, at most " + std::to_string(aelfImageAreaSize) + "\n");
    return false;
  }
  resources.resize(static_cast<std::size_t>(length));
  if (!readExactly(res, resources.data(), length)) {
    consolePrint(quoted("Can't read res file '", resPath));
    return false;
  }
  return true;
}

// exeSize bytes of the flat flash image from the offset of exeAddr; refused when
// the file ends before the program does.
bool readProgram(const std::string& objectPath, uint32_t exeAddr, uint32_t exeSize, std::vector<char>& program) {
  std::ifstream object(objectPath, std::ios::binary);
  if (!object.is_open()) {
    consolePrint(quoted("Can't open elf file '", objectPath));
    return false;
  }
  // The flat image starts at the flash base; an exeAddr below it wraps far past the end.
  const uint32_t offset = exeAddr - flashBase;
  const uint64_t length = streamLength(object);
  if (uint64_t(offset) + exeSize > length) {
    std::ostringstream text;
    text << "elf file '" << objectPath << "' ends at offset 0x" << std::hex << length << ", the program needs up to 0x"
         << uint64_t(offset) + exeSize << "\n";
    consolePrint(text.str());
    return false;
  }
  program.resize(exeSize);
  object.seekg(offset, std::ios::beg);
  if (!readExactly(object, program.data(), exeSize)) {
    consolePrint(quoted("Can't read elf file '", objectPath));
    return false;
  }
  return true;
}

// "AELF", the header block, the program and the resources, with nothing between.
bool writeImage(const std::string& outPath, const uint8_t* header, const std::vector<char>& program,
                const std::vector<char>& resources) {
  AtomicFile output;
  if (!output.open(outPath, true)) {
    consolePrint(quoted("Can't create output file '", outPath));
    return false;
  }
  uint8_t magic[4];
  writeLe32(magic, aelfMagic);
  std::ostream& out = output.stream();
  out.write(reinterpret_cast<const char*>(magic), sizeof magic);
  out.write(reinterpret_cast<const char*>(header), aelfHeaderSize);
  out.write(program.data(), static_cast<std::streamsize>(program.size()));
  out.write(resources.data(), static_cast<std::streamsize>(resources.size()));
  if (!output.commit()) {
    consolePrint(quoted("Can't create output file '", outPath));
    return false;
  }
  consolePrint("AELF file '" + outPath + "' has been successfully created\n");
  return true;
}

} // namespace

// Short inputs and images too large for a device's image area are refused with
// a message, and nothing is written; the output appears only complete. The
// output is created only after every input was read.
bool buildAelf(const std::string& mapPath, const std::string& cfgPath, const std::string& objectPath,
               const std::string& resPath, const std::string& outPath) {
  uint8_t header[aelfHeaderSize] = {};
  if (!readTemplate(cfgPath, mapPath, header) || !readMapSymbols(mapPath, header)) return false;
  printSummary(header);
  const uint32_t exeAddr = readLe32(header + headerExeAddr);
  const uint32_t exeSize = readLe32(header + headerExeSize);
  std::vector<char> resources;
  if (!readResources(resPath, exeSize, resources)) return false;
  writeLe32(header + headerResSize, static_cast<uint32_t>(resources.size()));
  std::vector<char> program;
  if (!readProgram(objectPath, exeAddr, exeSize, program)) return false;
  return writeImage(outPath, header, program, resources);
}
