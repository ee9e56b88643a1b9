#include "linkmap/LinkMap.h"
#include "linkmap/ReadLines.h"
#include "tests/linkmap/TestFiles.h"

#include <sstream>

namespace {

LinkMap parse(const std::string& text) {
  std::istringstream in(text);
  LinkMap table;
  readLinkMap(in, table);
  return table;
}

const char* const workedExample = "ModbusHGroups_Table       0x800'4000   0x40  Data  Gb  regs.o [1]\n"
                                  "ApplicationEntryPointWithAVeryLongName\n"
                                  "                          0x800'42a9         Code  Gb  start.o [1]\n"
                                  "loop                      0x800'f4     0x1c  Code  Gb  main.o [1]\n"
                                  "ram_buffer                0x2000'0100  0x10  Data  Lc  main.o [1]\n";

const LinkMap workedTable = {
    {"ApplicationEntryPointWithAVeryLongName", "0x80042a9"},
    {"ModbusHGroups_Table", "0x8004000"},
    {"loop", "0x80000f4"},
};

} // namespace

TEST(ReadLines, KeepsEmptyLinesAndTheLastLineWithoutLineEnd) {
  const std::string dir = testFolder();
  writeFile(dir + "lf.txt", "alpha\n\nbeta \ngamma");
  writeFile(dir + "crlf.txt", "alpha\r\n\r\nbeta \r\ngamma");
  const std::vector<std::string> expected = {"alpha", "", "beta ", "gamma"};
  EXPECT_EQ(readLines(dir + "lf.txt"), expected);
  EXPECT_EQ(readLines(dir + "crlf.txt"), expected);
}

TEST(ReadLines, MissingFileGivesNoLinesAndNoMessage) {
  startCapture();
  EXPECT_TRUE(readLines(testFolder() + "missing.txt").empty());
  EXPECT_EQ(endCapture(), "");
}

TEST(LinkMap, WorkedExampleWithLfAndCrlf) {
  EXPECT_EQ(parse(workedExample), workedTable);
  EXPECT_EQ(parse(withCrlf(workedExample)), workedTable);
}

TEST(LinkMap, MapsWithoutSymbolLinesGiveAnEmptyTable) {
  EXPECT_TRUE(parse("").empty());
  EXPECT_TRUE(parse("main 0x2000'0100 Code\nloop 0x8'00f4\n\n").empty());
}

TEST(LinkMap, LineOfOnlyTheMarkerEndsTheReading) {
  // "0x80" alone is a symbol line with neither tab nor blank: the rest is ignored.
  EXPECT_EQ(parse("a 0x800'1000\n0x80\nb 0x800'2000\n"), (LinkMap{{"a", "0x8001000"}}));
  // "0x8" is no symbol line; it becomes the remembered line of the next one.
  EXPECT_EQ(parse("0x8\n  0x800'2000 Code\n"), (LinkMap{{"0x8", "0x8002000"}}));
}

TEST(LinkMap, MarkerInTheSizeColumnQualifiesTheLine) {
  EXPECT_EQ(parse("buf 0x2000'0100 0x80\n"), (LinkMap{{"buf", "0x20000100"}}));
}

TEST(LinkMap, BlankLedLinesTakeTheRememberedName) {
  // At the very start the remembered line is empty.
  EXPECT_EQ(parse("   0x800'1000 Code\n"), (LinkMap{{"", "0x8001000"}}));
  // Two address lines after one long name: both take it, the second wins.
  EXPECT_EQ(parse("LongName\n   0x800'1000 Code\n\t0x800'2000 Code\n"), (LinkMap{{"LongName", "0x8002000"}}));
  // A short or empty line in between replaces the remembered name.
  EXPECT_EQ(parse("LongName\nab\n   0x800'1000\n"), (LinkMap{{"ab", "0x8001000"}}));
  EXPECT_EQ(parse("LongName\n\n   0x800'1000\n"), (LinkMap{{"", "0x8001000"}}));
}

TEST(LinkMap, TabEndsTheNameOneCharacterEarly) {
  EXPECT_EQ(parse("abc\t0x800'1000\n"), (LinkMap{{"ab", "0x8001000"}}));
  // A blank before the tab counts instead.
  EXPECT_EQ(parse("abc 0x800'1000\tCode\n"), (LinkMap{{"abc", "0x8001000"}}));
}

TEST(LinkMap, LaterLineForTheSameNameWins) {
  EXPECT_EQ(parse("f 0x800'1000\nf 0x800'2000\n"), (LinkMap{{"f", "0x8002000"}}));
}

TEST(LinkMap, AddressWidening) {
  EXPECT_EQ(linkMapAddress("loop 0x800'f4 Code"), "0x80000f4");
  EXPECT_EQ(linkMapAddress("x 0x800'1c0 Data"), "0x80001c0");
  EXPECT_EQ(linkMapAddress("x 0x800'4000"), "0x8004000");
  // A high group of four digits is widened at the same place; long texts stay.
  EXPECT_EQ(linkMapAddress("x 0x8000'12"), "0x8000012");
  EXPECT_EQ(linkMapAddress("x 0x8000'1234"), "0x80001234");
  EXPECT_EQ(linkMapAddress("x 0x2000'0100\t0x10"), "0x20000100");
  // Outside the grammar: no apostrophe, the text runs to the next blank.
  EXPECT_EQ(linkMapAddress("x 0x8001234 Code"), "0x8001234");
  EXPECT_EQ(linkMapAddress("x 0x80 y"), "0x8000000");
}
