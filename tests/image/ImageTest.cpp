// The AELF reader, the map lookup, the builder and how it writes its output.
#include <cstring>

#include "image/AelfImage.h"
#include "image/Builder.h"
#include "image/MapSymbols.h"
#include "tests/support/TestFiles.h"

namespace fs = std::filesystem;

namespace {

const std::string symbolLines = "0x08004101 __entryPoint__\n0x080041a5 loop\n0x08005000 ModbusHGroups_Table\n"
                                "0x08005100 ModbusIGroups_Table\n0x08005200 ModbusRemoteRegTables\n";
const std::string mapText = ".text 0x08004000 0x1a2c\n" + symbolLines + "0x08005a2c _etext\n.bss 0x2\n";
const std::string symbolsConsole = "__entryPoint__: 8004101\nloop: 80041a5\nModbusHGroups_Table: 8005000\n"
                                   "ModbusIGroups_Table: 8005100\nModbusRemoteRegTables: 8005200\n";

std::string pattern(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = char((i * 7 + seed * 13 + (i >> 8)) & 0xFF);
  return bytes;
}

// Header fields at their documented offsets (not the product's constants).
std::string header(uint32_t exeAddr, uint32_t exeSize, uint32_t resAddr, uint32_t resSize) {
  std::string bytes = pattern(64, 4);
  for (const auto& [at, value] : {std::pair{28, exeAddr}, {32, exeSize}, {40, resAddr}, {44, resSize}})
    writeLe32(reinterpret_cast<uint8_t*>(&bytes[at]), value);
  return bytes;
}

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}
std::string area(std::size_t size) { return std::string(reinterpret_cast<const char*>(aelfImageArea()), size); }

// The builder's inputs in a fresh folder (exeAddr 0x08004000, exeSize 0x1A2C) and an earlier output.
struct Inputs {
  std::string dir = testFolder(), map = dir + "__output__.map", cfg = dir + "test.cpp_CFG.bin",
              object = dir + "__target_out__.o", res = dir + "test.cpp_RES.bin", out = dir + "project.alf";
  Inputs() {
    writeFile(map, mapText);
    writeFile(cfg, pattern(64, 7)), writeFile(object, pattern(0x6000, 11)), writeFile(res, pattern(777, 12));
    writeFile(out, "earlier image");
  }
  auto build() {
    return captured([&] { return buildAelf(map, cfg, object, res, out); });
  }
};

} // namespace

TEST(AelfReader, SegmentsLieContiguousInTheAreaAndFailuresLeaveTheLoadedImageAlone) {
  const std::string path = testFolder() + "image.alf", loaded = header(0x08036000, 1000, 0x08004000, 300);
  AelfImage image;
  const auto read = [&](const std::string& contents) {
    fs::remove(path);
    if (!contents.empty()) writeFile(path, contents);
    return captured([&] { return readAelfImage(path, image); });
  };
  // Resources come from behind the program even when their address is lower; trailing bytes are never read.
  ASSERT_EQ(read("AELF" + loaded + pattern(1300, 1) + "trailing"), std::pair(int(aelfOk), std::string()));
  const uint8_t* at = aelfImageArea();
  const AelfImage want{{{0x08036000, 1000, at + 64}, {0x08004000, 300, at + 1064}, {0x0803FE00, 64, at}}};
  EXPECT_EQ(std::memcmp(&image, &want, sizeof image), 0);
  EXPECT_EQ(area(1364), loaded + pattern(1300, 1));
  const uint32_t fits = 0x48000 - 64 - 100;
  const std::string tooLarge = " bytes of header, program and resources, the image area holds 294912\n";
  // The file (empty: none), the result and the message after "File '<path>'".
  const std::tuple<std::string, int, std::string> cases[] = {
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
  for (const auto& [contents, result, message] : cases)
    EXPECT_EQ(read(contents), std::pair(result, contents.empty() ? "Can't open aelf file '" + path + "'\n"
                                                                 : "File '" + path + "'" + message));
  EXPECT_EQ(area(1364), loaded + pattern(1300, 1));
  EXPECT_EQ(std::memcmp(&image, &want, sizeof image), 0);
  // The largest image that fits replaces the loaded one.
  const std::string largest = header(0x08008000, fits, 0, 100) + pattern(fits + 100, 3);
  EXPECT_EQ(read("AELF" + largest).first, aelfOk);
  EXPECT_EQ(image.segments[0].address, 0x08008000u);
  EXPECT_EQ(area(largest.size()), largest);
}

TEST(MapSymbols, TableOfMaps) {
  const std::string noAddress = "map line without address: ";
  const uint32_t kept = 0xEEEEEEEE, exe = 0x08004000;
  const std::vector<uint32_t> onlyExe{kept, kept, kept, kept, kept, kept, kept, exe};
  const struct {
    std::string map;
    std::string console;         // checked when not empty
    std::vector<uint32_t> words; // the header's first words; the others are kept
  } cases[] = {
      {mapText + "0x08009999 loop\n",
       symbolsConsole,
       {0x08004101, 0x080041A5, 0x08005000, 0x08005100, 0x08005200, kept, kept, exe, 0x1A2C}},
      // Seven characters from the first '8'; the later line wins; only a space ends the key,
      // so the tab line's key is not ModbusRemoteRegTables. Without ".bss" exeSize is kept.
      {".text 0x08004000\n  0x0800412345  __entryPoint__\n0x08004000 loop\n0x08004111 loop\n"
       "0x8004A1D  x ModbusHGroups_Table\n" +
           symbolLines.substr(73) + "0x08006300 x\tModbusRemoteRegTables\n",
       "",
       {0x08004123, 0x08004111, 0x08004A1D, 0x08005100, 0x08005200, kept, kept, exe}},
      {"0x08004000 loop\n", "addrExe not found", {}}, // deliberately without a line end
      // A trailing blank is part of the line: the key of the last line is empty.
      {".text 0x08004000\n0x08004001 __entryPoint__\n0x08004101 loop\n0x08004201 ModbusHGroups_Table\n"
       "0x08004301 ModbusIGroups_Table \n",
       "__entryPoint__: 8004001\nloop: 8004101\nModbusHGroups_Table: 8004201\nfunc ModbusIGroups_Table not found\n",
       {0x08004001, 0x08004101, 0x08004201, kept, kept, kept, kept, exe}},
      {"0x08004000 loop\n.bss 0x2000\n", noAddress + "no symbol line before '.bss 0x2000'\n", {}},
      {".text 0x08004000\n.bss 0x2000\n", noAddress + "no symbol line before '.bss 0x2000'\n", onlyExe},
      {".text 0x0\n", noAddress + "'.text 0x0'\n", {}},
      {".text 0x08004000\n0x08004001 loop\n\n0x08004101 x\n", noAddress + "''\n", onlyExe},
  };
  const std::string path = testFolder() + "__output__.map";
  for (const auto& c : cases) {
    for (const std::string& map : {c.map, withCrlf(c.map)}) {
      SCOPED_TRACE(map);
      writeFile(path, map);
      uint8_t words[64];
      for (int i = 0; i < 16; ++i) writeLe32(words + 4 * i, kept);
      const auto [found, console] = captured([&] { return readMapSymbols(path, words); });
      EXPECT_EQ(found, c.words.size() > 4 && c.words[4] != kept); // all five symbols stored
      EXPECT_TRUE(c.console.empty() || console == c.console) << console;
      for (std::size_t i = 0; i < 16; ++i)
        EXPECT_EQ(readLe32(words + 4 * i), i < c.words.size() ? c.words[i] : kept) << "word " << i;
    }
  }
}

TEST(Builder, FailuresKeepAnEarlierOutput) {
  const std::string dir = testFolder(), map = ".text 0x00080000\n" + symbolLines + "0x00081a2c _etext\n.bss\n";
  // The input changed ("-": removed) and the console's last line.
  const std::tuple<std::string Inputs::*, std::string, std::string> cases[] = {
      {&Inputs::cfg, "-", "Can't open cfg file '" + dir + "__output__.map'\n"}, // the map's name, on purpose
      {&Inputs::map, "-", "map file not open " + dir + "__output__.map\n"},
      {&Inputs::res, "-", "Can't open cfg file '" + dir + "test.cpp_RES.bin'\n"},
      {&Inputs::object, "-", "Can't open elf file '" + dir + "__target_out__.o'\n"},
      {&Inputs::cfg, pattern(63, 1), "cfg file '" + dir + "test.cpp_CFG.bin' is shorter than 64 bytes\n"},
      {&Inputs::object, pattern(0x5A2B, 1), "o' ends at offset 0x5a2b, the program needs up to 0x5a2c\n"},
      {&Inputs::map, map,
       "o' ends at offset 0x6000, the program needs up to 0xf8081a2c\n"}, // exeAddr below the flash base
      {&Inputs::res, pattern(0x48000 - 64 - 0x1A2C + 1, 3),
       "AELF image too large: 294913 bytes of header, program and resources, at most 294912\n"},
  };
  for (const auto& [file, contents, line] : cases) {
    Inputs in;
    writeFile(in.*file, contents);
    if (contents == "-") fs::remove(in.*file);
    const auto [built, console] = in.build();
    EXPECT_TRUE(!built && endsWith(console, line) && console.find("successfully") == std::string::npos) << console;
    EXPECT_TRUE(readFile(in.out) == "earlier image" && !fs::exists(in.out + ".part"));
  }
}

TEST(Builder, OutputGoesThroughATemporaryBesideItKeepsLinksAndIgnoresLeftovers) {
  Inputs in;
  writeFile(in.res, ""); // an empty resource file is fine; the CLI's tests check the image and console in full
  const auto [built, console] = in.build();
  EXPECT_TRUE(built && endsWith(console, "\n========\nAELF file '" + in.out + "' has been successfully created\n"));
  const std::string image = readFile(in.out), dir = in.dir;
  EXPECT_EQ(image.size(), 68u + 0x1A2C);
  fs::create_directory(dir + "folder");
  for (const std::string& out : {dir + "missing/out", dir + "folder"}) {
    in.out = out;
    const auto [built, console] = in.build();
    EXPECT_TRUE(!built && endsWith(console, "========\nCan't create output file '" + out + "'\n") &&
                !fs::exists(out + ".part"));
  }
  EXPECT_TRUE(fs::is_empty(dir + "folder"));
  std::error_code noLinks; // Windows without the right to make links
  in.out = dir + "link";
  for (const bool targetExists : {true, false}) {
    fs::remove_all(dir + "real"), fs::remove(dir + "link"), fs::create_directory(dir + "real");
    if (targetExists) writeFile(dir + "real/out", "earlier output");
    fs::create_symlink("real/out", dir + "link", noLinks);
    EXPECT_TRUE(noLinks || (in.build().first && fs::read_symlink(dir + "link") == "real/out" &&
                            readFile(dir + "real/out") == image));
  }
  // A temporary left by a killed run: a file, a folder, or a link that must not redirect the bytes.
  writeFile(dir + "other", "other file");
  in.out = dir + "out";
  for (int leftover = 0; leftover < 3; ++leftover) {
    fs::remove_all(dir + "out.part");
    if (leftover == 0) writeFile(dir + "out.part", std::string(100000, 'x'));
    if (leftover == 1) fs::create_directory(dir + "out.part");
    if (leftover == 2) fs::create_symlink(dir + "other", dir + "out.part", noLinks);
    EXPECT_TRUE(in.build().first && readFile(dir + "out") == image && !fs::exists(fs::symlink_status(dir + "out.part")))
        << leftover;
  }
  EXPECT_EQ(readFile(dir + "other"), "other file");
}
