// The AELF reader, the map lookup, the builder and how it writes its output.
#include "image/AelfImage.h"
#include "image/Builder.h"
#include "image/MapSymbols.h"
#include "tests/linkmap/TestFiles.h"

namespace fs = std::filesystem;

namespace {

// Header fields at their documented offsets (not the product's constants).
std::string header(uint32_t exeAddr, uint32_t exeSize, uint32_t resAddr, uint32_t resSize) {
  uint8_t bytes[64];
  for (int i = 0; i < 64; ++i) bytes[i] = uint8_t(0xA0 + i);
  for (const auto& [at, value] : {std::pair{28, exeAddr}, {32, exeSize}, {40, resAddr}, {44, resSize}})
    writeLe32(bytes + at, value);
  return std::string(reinterpret_cast<const char*>(bytes), 64);
}

std::string pattern(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = char((i * 7 + seed * 13 + (i >> 8)) & 0xFF);
  return bytes;
}

std::string area(std::size_t size) { return std::string(reinterpret_cast<const char*>(aelfImageArea()), size); }

int read(const std::string& path, AelfImage& image, std::string* console = nullptr) {
  startCapture();
  const int result = readAelfImage(path, image);
  const std::string text = endCapture();
  if (console) *console = text;
  return result;
}

} // namespace

TEST(AelfReader, SegmentsLieContiguousInTheAreaWhateverTheirAddresses) {
  const std::string path = testFolder() + "image.alf", program = pattern(1000, 1), res = pattern(300, 2);
  // Resources come from behind the program even when their address is lower; trailing bytes are never read.
  writeFile(path, "AELF" + header(0x08036000, 1000, 0x08004000, 300) + program + res + "trailing");
  AelfImage image;
  ASSERT_EQ(read(path, image), aelfOk);
  const uint32_t expected[3][3] = {{0x08036000, 1000, 64}, {0x08004000, 300, 1064}, {0x0803FE00, 64, 0}};
  for (int i = 0; i < 3; ++i) {
    const AelfSegment& s = image.segments[i];
    EXPECT_TRUE(s.address == expected[i][0] && s.size == expected[i][1] && s.data == aelfImageArea() + expected[i][2])
        << i;
  }
  EXPECT_EQ(area(1364), header(0x08036000, 1000, 0x08004000, 300) + program + res);
  writeFile(path, "AELF" + header(0x08008000, 4, 0, 0) + "abcd"); // a second read replaces the first
  ASSERT_EQ(read(path, image), aelfOk);
  EXPECT_EQ(image.segments[0].address, 0x08008000u);
  EXPECT_EQ(area(68), header(0x08008000, 4, 0, 0) + "abcd");
}

TEST(AelfReader, FailuresAreReportedAndLeaveTheLoadedImageAlone) {
  const std::string path = testFolder() + "image.alf";
  writeFile(path, "AELF" + header(0x08004000, 300, 0x08030000, 20) + pattern(320, 5));
  AelfImage image;
  ASSERT_EQ(read(path, image), aelfOk);
  const AelfImage loaded = image;
  const std::string before = area(384);
  const uint32_t fits = 0x48000 - 64 - 100;
  const std::string tooLarge = " bytes of header, program and resources, the image area holds 294912\n";
  const struct {
    std::string contents; // empty: no file
    int result;
    std::string message; // after "File '<path>'"
  } cases[] = {
      {"", aelfCannotOpen, ""},
      {"FLEA" + header(0, 0, 0, 0), aelfNotAelf, " is not AELF file\n"},
      {"aelf" + header(0, 0, 0, 0), aelfNotAelf, " is not AELF file\n"},
      {"AEL", aelfNotAelf, " is not AELF file\n"},
      {"AELF" + header(0, fits, 0, 101) + pattern(fits + 101, 1), aelfTooLarge, " is too large: 294913" + tooLarge},
      {"AELF" + header(0, 0xFFFFFFF0, 0, 0x100), aelfTooLarge, " is too large: 4294967600" + tooLarge}, // no wrap
      {"AELF" + header(0, 300, 0, 20) + pattern(319, 9), aelfTruncated,
       " is truncated: 387 bytes, its header says 388\n"},
      {"AELF" + header(0, 0, 0, 0).substr(1), aelfTruncated, " is truncated: 67 bytes, the header alone needs 68\n"},
  };
  for (const auto& c : cases) {
    fs::remove(path);
    if (!c.contents.empty()) writeFile(path, c.contents);
    std::string console;
    EXPECT_EQ(read(path, image, &console), c.result) << c.message;
    EXPECT_EQ(console,
              c.contents.empty() ? "Can't open aelf file '" + path + "'\n" : "File '" + path + "'" + c.message);
  }
  EXPECT_EQ(area(384), before);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(image.segments[i].data, loaded.segments[i].data);
  writeFile(path, "AELF" + header(0, fits, 0, 100) + pattern(fits + 100, 3)); // the largest image that fits
  EXPECT_EQ(read(path, image), aelfOk);
}

TEST(MapSymbols, TableOfMaps) {
  const std::string tables = "0x08006000 ModbusHGroups_Table\n0x08006100 ModbusIGroups_Table\n"
                             "0x08006200 ModbusRemoteRegTables\n";
  const std::string noAddress = "map line without address: ";
  const uint32_t kept = 0xEEEEEEEE;
  const struct {
    std::string map;
    bool found;
    std::string console;                         // checked when not empty
    std::vector<std::pair<int, uint32_t>> words; // header word index and value
  } cases[] = {
      {".text 0x08004000 0x1a2c\n0x08004000 __entryPoint__\n0x080041a5 loop\n" + tables +
           "0x08005a2c _etext\n.bss 0x20000000 0x100\n0x08009999 loop\n",
       true,
       "__entryPoint__: 8004000\nloop: 80041a5\nModbusHGroups_Table: 8006000\nModbusIGroups_Table: 8006100\n"
       "ModbusRemoteRegTables: 8006200\n",
       {{0, 0x08004000},
        {1, 0x080041A5},
        {2, 0x08006000},
        {3, 0x08006100},
        {4, 0x08006200},
        {5, kept},
        {7, 0x08004000},
        {8, 0x1A2C},
        {10, kept}}},
      // Seven characters from the first '8'; the later line wins; only a space ends the key,
      // so the tab line's key is not ModbusRemoteRegTables. Without ".bss" exeSize is kept.
      {".text 0x08004000\n  0x0800412345  __entryPoint__\n0x08004000 loop\n0x08004111 loop\n"
       "0x8004A1D  x ModbusHGroups_Table\n" +
           tables.substr(31) + "0x08006300 x\tModbusRemoteRegTables\n",
       true,
       "",
       {{0, 0x08004123}, {1, 0x08004111}, {2, 0x08004A1D}, {4, 0x08006200}, {8, kept}}},
      {"0x08004000 loop\n", false, "addrExe not found", {}}, // deliberately without a line end
      {".text 0x08004000\n0x08004001 __entryPoint__\n0x08004101 loop\n0x08004201 ModbusHGroups_Table\n",
       false,
       "__entryPoint__: 8004001\nloop: 8004101\nModbusHGroups_Table: 8004201\nfunc ModbusIGroups_Table not found\n",
       {{2, 0x08004201}, {3, kept}}},
      {"0x08004000 loop\n.bss 0x20000000\n", false, noAddress + "no symbol line before '.bss 0x20000000'\n", {}},
      {".text 0x08004000\n.bss 0x20000000\n", false, noAddress + "no symbol line before '.bss 0x20000000'\n", {}},
      {".text 0x0\n", false, noAddress + "'.text 0x0'\n", {}},
      {".text 0x08004000\n0x08004001 loop\n\n0x08004101 x\n", false, noAddress + "''\n", {}},
  };
  const std::string path = testFolder() + "__output__.map";
  for (const auto& c : cases) {
    for (const std::string& map : {c.map, withCrlf(c.map)}) {
      SCOPED_TRACE(map);
      writeFile(path, map);
      uint8_t words[64];
      for (int i = 0; i < 16; ++i) writeLe32(words + 4 * i, kept);
      startCapture();
      const bool found = readMapSymbols(path, words);
      const std::string console = endCapture();
      EXPECT_EQ(found, c.found);
      EXPECT_TRUE(c.console.empty() || console == c.console) << console;
      for (const auto& w : c.words) EXPECT_EQ(readLe32(words + 4 * w.first), w.second) << "word " << w.first;
    }
  }
  uint8_t words[64] = {};
  startCapture();
  EXPECT_FALSE(readMapSymbols(path + ".none", words));
  EXPECT_EQ(endCapture(), "map file not open " + path + ".none\n");
}

namespace {

// The builder's inputs in a fresh folder: exeAddr 0x08004000, exeSize 0x1A2C.
struct Inputs {
  std::string dir = testFolder(), map = dir + "__output__.map", cfg = dir + "test.cpp_CFG.bin",
              object = dir + "__target_out__.o", res = dir + "test.cpp_RES.bin", out = dir + "project.alf";
  Inputs() {
    writeFile(map,
              ".text 0x08004000 0x1a2c\n0x08004101 __entryPoint__\n0x080041a5 loop\n0x08005000 ModbusHGroups_Table\n"
              "0x08005100 ModbusIGroups_Table\n0x08005200 ModbusRemoteRegTables\n0x08005a2c _etext\n.bss 0x2\n");
    writeFile(cfg, pattern(64, 7));
    writeFile(object, pattern(0x6000, 11));
    writeFile(res, pattern(777, 12));
  }
  std::string build() {
    startCapture();
    buildAelf(map, cfg, object, res, out);
    return endCapture();
  }
};

const std::string symbolsConsole =
    "__entryPoint__: 8004101\nloop: 80041a5\nModbusHGroups_Table: 8005000\nModbusIGroups_Table: 8005100\n"
    "ModbusRemoteRegTables: 8005200\n\n========\nexeAddr: 08004000\nexeSize: 00001a2c\nentry: 08004101\n"
    "loop: 080041a5\n\n========\n";

} // namespace

TEST(Builder, FailuresKeepAnEarlierOutput) {
  const std::string dir = testFolder(), map = ".text 0x00080000\n0x08004101 __entryPoint__\n0x080041a5 loop\n"
                                              "0x08005000 ModbusHGroups_Table\n0x08005100 ModbusIGroups_Table\n"
                                              "0x08005200 ModbusRemoteRegTables\n0x00081a2c _etext\n.bss\n";
  const struct {
    std::string Inputs::*file;
    std::string contents; // "-": removed
    std::string line;     // in the console
  } cases[] = {
      {&Inputs::cfg, "-", "Can't open cfg file '" + dir + "__output__.map'\n"}, // the map's name, on purpose
      {&Inputs::map, "-", "map file not open " + dir + "__output__.map\n"},
      {&Inputs::res, "-", "Can't open cfg file '" + dir + "test.cpp_RES.bin'\n"},
      {&Inputs::object, "-", "Can't open elf file '" + dir + "__target_out__.o'\n"},
      {&Inputs::cfg, pattern(63, 1), "cfg file '" + dir + "test.cpp_CFG.bin' is shorter than 64 bytes\n"},
      {&Inputs::object, pattern(0x5A2B, 1), "o' ends at offset 0x5a2b, the program needs up to 0x5a2c\n"},
      {&Inputs::map, map, "o' ends at offset 0x6000, the program needs up to 0x"}, // exeAddr below the flash base
      {&Inputs::res, pattern(0x48000 - 64 - 0x1A2C + 1, 3),
       "AELF image too large: 294913 bytes of header, program and resources, at most 294912\n"},
      {&Inputs::map, ".text 0x08004000\n.bss 0x2\n", "map line without address: no symbol line before '.bss 0x2'\n"},
  };
  for (const auto& c : cases) {
    Inputs in;
    writeFile(in.out, "earlier image");
    if (c.contents == "-")
      fs::remove(in.*c.file);
    else
      writeFile(in.*c.file, c.contents);
    const std::string console = in.build();
    EXPECT_NE(console.find(c.line), std::string::npos) << console;
    EXPECT_EQ(console.find("successfully"), std::string::npos);
    EXPECT_EQ(readFile(in.out), "earlier image");
    EXPECT_FALSE(fs::exists(in.out + ".part"));
  }
}

TEST(Builder, OutputGoesThroughATemporaryBesideItKeepsLinksAndIgnoresLeftovers) {
  Inputs in;
  writeFile(in.res, ""); // an empty resource file is fine; the image is checked byte for byte by the CLI's tests
  writeFile(in.out, "earlier image");
  EXPECT_EQ(in.build(), symbolsConsole + "AELF file '" + in.out + "' has been successfully created\n");
  const std::string image = readFile(in.out), dir = in.dir;
  EXPECT_EQ(image.size(), 68u + 0x1A2C);
  fs::create_directory(dir + "folder");
  for (const std::string& out : {dir + "missing/out", dir + "folder"}) {
    in.out = out;
    EXPECT_EQ(in.build(), symbolsConsole + "Can't create output file '" + out + "'\n");
    EXPECT_FALSE(fs::exists(out + ".part"));
  }
  EXPECT_TRUE(fs::is_empty(dir + "folder"));
  std::error_code noLinks; // Windows without the right to make links
  for (const bool targetExists : {true, false}) {
    fs::remove_all(dir + "real"), fs::remove(dir + "link"), fs::create_directory(dir + "real");
    if (targetExists) writeFile(dir + "real/out", "earlier output");
    fs::create_symlink("real/out", dir + "link", noLinks);
    in.out = dir + "link";
    if (!noLinks) in.build();
    EXPECT_TRUE(noLinks || (fs::read_symlink(dir + "link") == "real/out" && readFile(dir + "real/out") == image));
  }
  // A temporary left by a killed run: a file, a folder, or a link that must not redirect the bytes.
  writeFile(dir + "other", "other file");
  for (int leftover = 0; leftover < 3; ++leftover) {
    fs::remove_all(dir + "out.part");
    if (leftover == 0) writeFile(dir + "out.part", std::string(100000, 'x'));
    if (leftover == 1) fs::create_directory(dir + "out.part");
    if (leftover == 2) fs::create_symlink(dir + "other", dir + "out.part", noLinks);
    in.out = dir + "out";
    in.build();
    EXPECT_TRUE(readFile(dir + "out") == image && !fs::exists(fs::symlink_status(dir + "out.part"))) << leftover;
  }
  EXPECT_EQ(readFile(dir + "other"), "other file");
}
