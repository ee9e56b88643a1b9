#include "image/MapSymbols.h"

#include "image/AelfImage.h"
#include "linkmap/ReadLines.h"

#include <fstream>
#include <iostream>
#include <map>

namespace {

struct WantedSymbol {
  const char* name;
  uint32_t offset;
};

const WantedSymbol wantedSymbols[] = {
    {"__entryPoint__", headerEntry},
    {"loop", headerLoop},
    {"ModbusHGroups_Table", headerHGroupsTable},
    {"ModbusIGroups_Table", headerIGroupsTable},
    {"ModbusRemoteRegTables", headerRemoteRegTables},
};

// The address text of a line: up to 7 characters from its first '8'.
bool addressText(const std::string& line, std::string& text) {
  const std::size_t at = line.find('8');
  if (at == std::string::npos) return false;
  text = line.substr(at, 7);
  return true;
}

// Hexadecimal digits from the start of the text, up to the first other character.
uint32_t hexValue(const std::string& text) {
  uint32_t value = 0;
  for (char c : text) {
    int digit;
    if (c >= '0' && c <= '9')
      digit = c - '0';
    else if (c >= 'a' && c <= 'f')
      digit = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F')
      digit = c - 'A' + 10;
    else
      break;
    value = value << 4 | uint32_t(digit);
  }
  return value;
}

void reportNoAddress(const std::string& line) {
  std::cout << "map line without address: '" << line << "'" << std::endl;
}

} // namespace

bool readMapSymbols(const std::string& mapPath, uint8_t* header) {
  std::ifstream map(mapPath);
  if (!map.is_open()) {
    std::cout << "map file not open " << mapPath << std::endl;
    return false;
  }

  bool exeAddrFound = false;
  std::string prevLine;
  std::map<std::string, std::string> symbolTable;
  std::string line;
  std::string text;
  while (readTextLine(map, line)) {
    if (line.size() >= 5 && line.find(".text") != std::string::npos && !exeAddrFound) {
      if (!addressText(line, text)) {
        reportNoAddress(line);
        return false;
      }
      writeLe32(header + headerExeAddr, hexValue(text));
      exeAddrFound = true;
      continue;
    }
    if (line.size() >= 4 && line.find(".bss") != std::string::npos) {
      // The last symbol line before ".bss" marks the end of the program.
      if (!addressText(prevLine, text)) {
        // Only when no symbol line came between ".text" and ".bss".
        std::cout << "map line without address: no symbol line before '" << line << "'" << std::endl;
        return false;
      }
      writeLe32(header + headerExeSize, hexValue(text) - readLe32(header + headerExeAddr));
      break;
    }
    if (!exeAddrFound) continue;
    if (!addressText(line, text)) {
      reportNoAddress(line);
      return false;
    }
    const std::size_t space = line.rfind(' ');
    const std::string key = space == std::string::npos ? line : line.substr(space + 1);
    symbolTable[key] = text;
    prevLine = line;
  }

  if (!exeAddrFound) {
    std::cout << "addrExe not found" << std::flush;
    return false;
  }
  for (const WantedSymbol& symbol : wantedSymbols) {
    const auto found = symbolTable.find(symbol.name);
    if (found == symbolTable.end()) {
      std::cout << "func " << symbol.name << " not found" << std::endl;
      return false;
    }
    std::cout << symbol.name << ": " << found->second << std::endl;
    writeLe32(header + symbol.offset, hexValue(found->second));
  }
  return true;
}
