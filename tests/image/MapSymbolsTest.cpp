#include "image/AelfImage.h"
#include "image/MapSymbols.h"
#include "tests/linkmap/TestFiles.h"

#include <vector>

namespace {

const char* const tableSymbols = "0x08006000 ModbusHGroups_Table\n"
                                 "0x08006100 ModbusIGroups_Table\n"
                                 "0x08006200 ModbusRemoteRegTables\n";

struct Lookup {
  bool found;
  std::string console;
  std::vector<uint32_t> fields; // the 16 words of the header
};

Lookup lookUp(const std::string& mapText, uint32_t headerFill = 0xEEEEEEEE) {
  const std::string path = testFolder() + "__output__.map";
  writeFile(path, mapText);
  uint8_t header[64];
  for (int i = 0; i < 16; ++i) writeLe32(header + 4 * i, headerFill);
  startCapture();
  const bool found = readMapSymbols(path, header);
  Lookup result{found, endCapture(), {}};
  for (int i = 0; i < 16; ++i) result.fields.push_back(readLe32(header + 4 * i));
  return result;
}

} // namespace

TEST(MapSymbols, ProgramRangeAndSymbols) {
  const Lookup result = lookUp(std::string("Memory map\n"
                                           ".text 0x08004000 0x1a2c\n"
                                           "0x08004000 __entryPoint__\n"
                                           "0x080041a5 loop\n") +
                               tableSymbols +
                               "0x08005a2c _etext\n"
                               ".bss 0x20000000 0x100\n"
                               "0x08009999 loop\n");
  ASSERT_TRUE(result.found);
  EXPECT_EQ(result.console, ("__entryPoint__: 8004000\nloop: 80041a5\nModbusHGroups_Table: 8006000\n"
                             "ModbusIGroups_Table: 8006100\nModbusRemoteRegTables: 8006200\n"));
  EXPECT_EQ(result.fields[0], 0x08004000u); // entry
  EXPECT_EQ(result.fields[1], 0x080041A5u); // loop, the line after ".bss" is never read
  EXPECT_EQ(result.fields[2], 0x08006000u);
  EXPECT_EQ(result.fields[3], 0x08006100u);
  EXPECT_EQ(result.fields[4], 0x08006200u);
  EXPECT_EQ(result.fields[5], 0xEEEEEEEEu);  // configuration left alone
  EXPECT_EQ(result.fields[7], 0x08004000u);  // exeAddr
  EXPECT_EQ(result.fields[8], 0x1A2Cu);      // exeSize
  EXPECT_EQ(result.fields[10], 0xEEEEEEEEu); // resAddr left alone
}

TEST(MapSymbols, CrlfMapReadsTheSame) {
  const std::string map = std::string(".text 0x08004000\n0x08004001 __entryPoint__\n0x080041a5 loop\n") + tableSymbols +
                          "0x08005000 _etext\n.bss\n";
  const Lookup lf = lookUp(map);
  const Lookup crlf = lookUp(withCrlf(map));
  EXPECT_TRUE(crlf.found);
  EXPECT_EQ(crlf.console, lf.console);
  EXPECT_EQ(crlf.fields, lf.fields);
}

TEST(MapSymbols, AddressTextIsSevenCharactersFromTheFirstEight) {
  const Lookup result = lookUp(std::string(".text 0x08004000\n"
                                           "  0x0800412345  __entryPoint__\n"
                                           "0x08004000 loop\n"
                                           "0x08004111 loop\n"
                                           "0x8004A1D  x ModbusHGroups_Table\n"
                                           "0x08006100 ModbusIGroups_Table\n"
                                           "0x08006200\tspacer ModbusRemoteRegTables\n"));
  ASSERT_TRUE(result.found);
  EXPECT_EQ(result.fields[0], 0x08004123u);
  EXPECT_EQ(result.fields[1], 0x08004111u); // the later line wins
  EXPECT_EQ(result.fields[2], 0x08004A1Du);
  EXPECT_EQ(result.fields[4], 0x08006200u); // only a space separates the key
  // No ".bss": exeSize keeps what the header held.
  EXPECT_EQ(result.fields[8], 0xEEEEEEEEu);
}

TEST(MapSymbols, ReportedFailures) {
  const std::string dir = testFolder();
  uint8_t header[64] = {};
  startCapture();
  EXPECT_FALSE(readMapSymbols(dir + "none.map", header));
  EXPECT_EQ(endCapture(), ("map file not open " + dir + "none.map\n"));

  Lookup result = lookUp("0x08004000 loop\n.bss 0x20000000\n");
  EXPECT_FALSE(result.found);
  // ".bss" before ".text" with nothing recorded.
  EXPECT_EQ(result.console, ("map line without address: no symbol line before '.bss 0x20000000'\n"));

  result = lookUp("0x08004000 loop\n");
  EXPECT_FALSE(result.found);
  EXPECT_EQ(result.console, "addrExe not found");

  result = lookUp(".text 0x08004000\n0x08004001 __entryPoint__\n0x08004101 loop\n0x08004201 ModbusHGroups_Table\n");
  EXPECT_FALSE(result.found);
  EXPECT_EQ(result.console, ("__entryPoint__: 8004001\nloop: 8004101\nModbusHGroups_Table: 8004201\n"
                             "func ModbusIGroups_Table not found\n"));
  EXPECT_EQ(result.fields[2], 0x08004201u); // earlier fields already written
  EXPECT_EQ(result.fields[3], 0xEEEEEEEEu);
}

TEST(MapSymbols, LinesWithoutAnAddressAreReportedFailures) {
  Lookup result = lookUp(".text 0x0\n");
  EXPECT_FALSE(result.found);
  EXPECT_EQ(result.console, ("map line without address: '.text 0x0'\n"));

  result = lookUp(".text 0x08004000\n0x08004001 loop\n\n0x08004101 x\n");
  EXPECT_FALSE(result.found);
  EXPECT_EQ(result.console, ("map line without address: ''\n"));

  result = lookUp(".text 0x08004000\n.bss 0x20000000\n");
  EXPECT_FALSE(result.found);
  EXPECT_EQ(result.console, ("map line without address: no symbol line before '.bss 0x20000000'\n"));
}
