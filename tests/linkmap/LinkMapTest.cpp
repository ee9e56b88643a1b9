// The link-map reader and the linker-script rewriter that writes the map's addresses into a template.
#include <sstream>

#include "linkmap/LinkMap.h"
#include "linkmap/Rewriter.h"
#include "tests/support/TestFiles.h"

namespace fs = std::filesystem;

namespace {

const char* const mapText = "ModbusHGroups_Table       0x800'4000   0x40  Data  Gb  regs.o [1]\n"
                            "ApplicationEntryPointWithAVeryLongName\n"
                            "                          0x800'42a9         Code  Gb  start.o [1]\n"
                            "loop                      0x800'f4     0x1c  Code  Gb  main.o [1]\n"
                            "ram_buffer                0x2000'0100  0x10  Data  Lc  main.o [1]\n";

LinkMap parse(const std::string& text) {
  std::istringstream in(text);
  LinkMap table;
  readLinkMap(in, table);
  return table;
}

std::string lines(int count) {
  std::string text;
  for (int i = 1; i <= count; ++i) text += "L" + std::to_string(i) + "\n";
  return text;
}

} // namespace

TEST(LinkMap, TableOfMaps) {
  const std::pair<const char*, LinkMap> cases[] = {
      {mapText,
       {{"ApplicationEntryPointWithAVeryLongName", "0x80042a9"},
        {"ModbusHGroups_Table", "0x8004000"},
        {"loop", "0x80000f4"}}},
      {"main 0x2000'0100 Code\nloop 0x8'00f4\n\n", {}},
      // "0x80" alone is a symbol line with neither tab nor blank: the rest is ignored.
      {"a 0x800'1000\n0x80\nb 0x800'2000\n", {{"a", "0x8001000"}}},
      // "0x8" is no symbol line; it becomes the remembered line of the next one.
      {"0x8\n  0x800'2000 Code\n", {{"0x8", "0x8002000"}}},
      {"buf 0x2000'0100 0x80\n", {{"buf", "0x20000100"}}}, // the marker in the size column counts
      {"   0x800'1000 Code\n", {{"", "0x8001000"}}},       // nothing remembered yet
      {"LongName\n   0x800'1000 Code\n\t0x800'2000 Code\n", {{"LongName", "0x8002000"}}},
      {"LongName\nab\n   0x800'1000\n", {{"ab", "0x8001000"}}},
      {"LongName\n\n   0x800'1000\n", {{"", "0x8001000"}}},
      {"abc\t0x800'1000\n", {{"ab", "0x8001000"}}}, // a tab ends the name one character early
      {"abc 0x800'1000\tCode\n", {{"abc", "0x8001000"}}},
      {"f 0x800'1000\nf 0x800'2000\n", {{"f", "0x8002000"}}},
      // Short low groups widened; without an apostrophe the address ends at a blank.
      {"a 0x800'1c0 Data\nb 0x8000'12\n", {{"a", "0x80001c0"}, {"b", "0x8000012"}}},
      {"c 0x8000'1234\nd 0x8001234 Code\ne 0x80 y\n", {{"c", "0x80001234"}, {"d", "0x8001234"}, {"e", "0x8000000"}}},
  };
  for (const auto& [text, table] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(parse(text), table);
    EXPECT_EQ(parse(withCrlf(text)), table);
  }
}

TEST(Rewriter, TableOfRuns) {
  using R = RewriteResult;
  const std::string dir = testFolder();
  const struct {
    const char* funcs; // nullptr: no such file (read silently), likewise for the map and a template of 0 lines
    std::string map;
    int lines;
    const char* out;
    RewriteResult result;
    std::string console;
    const char* inserted; // the block after the template's 11th line; nullptr: the output is left alone
  } cases[] = {
      {"ModbusHGroups_Table\nloop\nApplicationEntryPointWithAVeryLongName -> __entryPoint__\nunused_symbol\n", mapText,
       13, "out.ld", R::WrittenSomeMissing,
       "replace ApplicationEntryPointWithAVeryLongName on __entryPoint__\nfunc unused_symbol not found\n",
       "ModbusHGroups_Table = 0x8004000;\nloop = 0x80000f4;\n__entryPoint__ = 0x80042a9;\n"},
      {"missing\n", mapText, 10, "out.ld", R::Written, "", ""}, // fewer than 11 lines: a plain copy
      {"loop\n", mapText, 11, "out.ld", R::Written, "", "loop = 0x80000f4;\n"},
      {"Modbus HGroups_Table\nloop\nloop\n\nnothere -> there\n->x\ntableWithALongName->buf\n",
       mapText + std::string("tableWithALongName\n   0x800'0042 Code\n"), 11, "out.ld", R::WrittenSomeMissing,
       "func  not found\nfunc nothere not found\nfunc  not found\nreplace tableWithALongName on buf\n",
       "ModbusHGroups_Table = 0x8004000;\nloop = 0x80000f4;\nloop = 0x80000f4;\nbuf = 0x8000042;\n"},
      {"->x", "  0x800'1000 Code\n", 11, "out.ld", R::Written, "replace  on x\n", "x = 0x8001000;\n"},
      {nullptr, mapText, 12, "out.ld", R::Written, "", ""}, // no function list: the template is copied
      {"loop\n", "", 12, "out.ld", R::NotWritten, "map file not open " + dir + "out.map\n", nullptr},
      {"loop\n", mapText, 0, "out.ld", R::NotWritten, "target file not open " + dir + "target.ld\n", nullptr},
      {"loop\n", mapText, 12, "folder", R::NotWritten, "target_out file not open \n", nullptr}, // with its blank
  };
  for (const auto& c : cases) {
    for (const bool crlf : {false, true}) {
      SCOPED_TRACE(c.console + (crlf ? " (CR LF)" : ""));
      fs::create_directory(testFolder() + "folder"); // the folder emptied for each run
      const auto put = [&](const char* name, std::string text) { writeFile(dir + name, crlf ? withCrlf(text) : text); };
      if (c.funcs) put("funcList.txt", c.funcs);
      if (!c.map.empty()) put("out.map", c.map);
      if (c.lines) put("target.ld", lines(c.lines));
      writeFile(dir + "out.ld", "previous output\n");
      const auto rewrite = [&] {
        return rewriteLinkerScript(dir + "funcList.txt", dir + "out.map", dir + "target.ld", dir + c.out);
      };
      EXPECT_EQ(captured(rewrite), std::pair(c.result, c.console));
      const std::string written =
          c.lines < 11 ? lines(c.lines) : lines(11) + (c.inserted ? c.inserted : "") + lines(c.lines).substr(35);
      EXPECT_EQ(readFile(dir + "out.ld", std::ios::in), c.inserted ? written : "previous output\n");
      EXPECT_TRUE(fs::is_empty(dir + "folder"));
    }
  }
}
