#include "image/MapSymbols.h"

#include "base/Console.h"
#include "base/IdentityText.h"
#include "image/AelfImage.h"
#include "linkmap/ReadLines.h"

#include <fstream>
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

// What the scan of the map keeps between lines.
struct MapScan {
  bool exeAddrFound = false;
  std::string prevLine;
  std::map<std::string, std::string> symbolTable;
};

// The address text of a line: up to 7 characters from its first '8'.
bool addressText(const std::string& line, std::string& text) {
  const std::size_t at = line.find('8');
  if (at == std::string::npos) return false;
  text = line.substr(at, 7);
  return true;
}

// The hexadecimal digits at the start of the text, up to the first other
// character, as the standard string-to-int conversion in base 16 reads them
// ("8004a1d x" gives 0x08004A1D). Deliberately unlike parseHexWord, which
// refuses any other character: an address text may run on into the next column.
// An address text starts with '8' and holds at most 7 characters, so the digits
// are never empty or too many.
uint32_t hexValue(const std::string& text) {
  const std::size_t digits = text.find_first_not_of("0123456789abcdefABCDEF");
  uint32_t value = 0;
  parseHexWord(std::string_view(text).substr(0, digits), value);
  return value;
}

// A line without an address is a reported failure rather than an escaping
// exception, so a malformed map never ends the program.
void reportNoAddress(const std::string& line) { consolePuts("map line without address: '" + line + "'"); }

enum class LineStep { next, stop, failed };

// The first ".text" line gives exeAddr.
LineStep takeExeAddr(const std::string& line, MapScan& scan, uint8_t* header) {
  std::string text;
  if (!addressText(line, text)) {
    reportNoAddress(line);
    return LineStep::failed;
  }
  writeLe32(header + headerExeAddr, hexValue(text));
  scan.exeAddrFound = true;
  return LineStep::next;
}

// The first ".bss" line ends the scan: the last symbol line before it marks the
// end of the program.
LineStep takeExeSize(const std::string& line, const MapScan& scan, uint8_t* header) {
  std::string text;
  if (!addressText(scan.prevLine, text)) {
    // Only when no symbol line came between ".text" and ".bss".
    consolePuts("map line without address: no symbol line before '" + line + "'");
    return LineStep::failed;
  }
  writeLe32(header + headerExeSize, hexValue(text) - readLe32(header + headerExeAddr));
  return LineStep::stop;
}

// A symbol line's key is the text behind its last space (a tab does not count).
LineStep takeSymbol(const std::string& line, MapScan& scan) {
  std::string text;
  if (!addressText(line, text)) {
    reportNoAddress(line);
    return LineStep::failed;
  }
  const std::size_t space = line.rfind(' ');
  scan.symbolTable[space == std::string::npos ? line : line.substr(space + 1)] = text;
  scan.prevLine = line;
  return LineStep::next;
}

LineStep scanLine(const std::string& line, MapScan& scan, uint8_t* header) {
  if (line.size() >= 5 && line.find(".text") != std::string::npos && !scan.exeAddrFound)
    return takeExeAddr(line, scan, header);
  if (line.size() >= 4 && line.find(".bss") != std::string::npos) return takeExeSize(line, scan, header);
  if (!scan.exeAddrFound) return LineStep::next;
  return takeSymbol(line, scan);
}

// The wanted symbols in their fixed order; the first missing one ends the
// lookup, with the fields of those before it already written.
bool storeWantedSymbols(const MapScan& scan, uint8_t* header) {
  for (const WantedSymbol& symbol : wantedSymbols) {
    const auto found = scan.symbolTable.find(symbol.name);
    if (found == scan.symbolTable.end()) {
      consolePuts(std::string("func ") + symbol.name + " not found");
      return false;
    }
    consolePuts(std::string(symbol.name) + ": " + found->second);
    writeLe32(header + symbol.offset, hexValue(found->second));
  }
  return true;
}

} // namespace

bool readMapSymbols(const std::string& mapPath, uint8_t* header) {
  std::ifstream map(mapPath);
  if (!map.is_open()) {
    consolePuts("map file not open " + mapPath);
    return false;
  }
  MapScan scan;
  std::string line;
  LineStep step = LineStep::next;
  while (step == LineStep::next && readTextLine(map, line)) step = scanLine(line, scan, header);
  if (step == LineStep::failed) return false;
  if (!scan.exeAddrFound) {
    consolePrint("addrExe not found"); // deliberately without a line end
    return false;
  }
  return storeWantedSymbols(scan, header);
}
