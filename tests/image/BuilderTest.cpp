#include "image/AelfImage.h"
#include "image/Builder.h"
#include "linkmap/Rewriter.h"
#include "tests/image/AelfBytes.h"
#include "tests/linkmap/TestFiles.h"

namespace {

// A map with exeAddr 0x08004000 and exeSize 0x1A2C.
std::string mapText(const std::string& textAddress = "0x08004000") {
  return ".text " + textAddress +
         " 0x1a2c\n"
         "0x08004101 __entryPoint__\n"
         "0x080041a5 loop\n"
         "0x08005000 ModbusHGroups_Table\n"
         "0x08005100 ModbusIGroups_Table\n"
         "0x08005200 ModbusRemoteRegTables\n" +
         (textAddress == "0x08004000" ? std::string("0x08005a2c _etext\n") : std::string("0x00081a2c _etext\n")) +
         ".bss 0x20000000 0x100\n";
}

std::string configTemplate() {
  std::string cfg = pattern(64, 7);
  uint8_t resAddr[4];
  writeLe32(resAddr, 0x08036000);
  cfg.replace(40, 4, reinterpret_cast<const char*>(resAddr), 4);
  return cfg;
}

// The builder's inputs, under the names of the start screen's fixed paths.
struct Inputs {
  std::string dir;
  std::string map = dir + "__output__.map";
  std::string cfg = dir + "test.cpp_CFG.bin";
  std::string object = dir + "__target_out__.o";
  std::string res = dir + "test.cpp_RES.bin";
  std::string out = dir + "project.alf";

  explicit Inputs(const std::string& folder = testFolder()) : dir(folder) {
    writeFile(map, mapText());
    writeFile(cfg, configTemplate());
    writeFile(object, pattern(0x6000, 11));
    writeFile(res, pattern(777, 12));
  }

  bool build(std::string* console = nullptr) {
    startCapture();
    const bool ok = buildAelf(map, cfg, object, res, out);
    const std::string text = endCapture();
    if (console) *console = text;
    return ok;
  }
};

const char* const successConsole =
    "__entryPoint__: 8004101\nloop: 80041a5\nModbusHGroups_Table: 8005000\nModbusIGroups_Table: 8005100\n"
    "ModbusRemoteRegTables: 8005200\n"
    "\n========\nexeAddr: 08004000\nexeSize: 00001a2c\nentry: 08004101\nloop: 080041a5\n\n========\n";

} // namespace

TEST(Builder, ProgramBytesComeFromTheFlashOffset) {
  Inputs in;
  std::string console;
  ASSERT_TRUE(in.build(&console));
  EXPECT_EQ(console, (std::string(successConsole) + "AELF file '" + in.out + "' has been successfully created\n"));

  const std::string image = readFile(in.out);
  ASSERT_EQ(image.size(), 4u + 64 + 0x1A2C + 777);
  EXPECT_EQ(image.substr(0, 4), "AELF");
  const uint8_t* header = reinterpret_cast<const uint8_t*>(image.data() + 4);
  const std::string cfg = configTemplate();
  EXPECT_EQ(readLe32(header + headerEntry), 0x08004101u);
  EXPECT_EQ(readLe32(header + headerRemoteRegTables), 0x08005200u);
  EXPECT_EQ(readLe32(header + headerExeAddr), 0x08004000u);
  EXPECT_EQ(readLe32(header + headerExeSize), 0x1A2Cu);
  EXPECT_EQ(readLe32(header + headerResSize), 777u);
  EXPECT_EQ(image.substr(4 + 20, 8), cfg.substr(20, 8));
  EXPECT_EQ(image.substr(4 + 36, 8), cfg.substr(36, 8)); // resAddr comes from the template
  EXPECT_EQ(image.substr(4 + 48, 16), cfg.substr(48, 16));
  EXPECT_EQ(image.substr(68, 0x1A2C), pattern(0x6000, 11).substr(0x4000, 0x1A2C));
  EXPECT_EQ(image.substr(68 + 0x1A2C), pattern(777, 12));

  // The reader loads what the builder wrote.
  AelfImage loaded;
  ASSERT_EQ(readAelfImage(in.out, loaded), aelfOk);
  EXPECT_EQ(loaded.segments[1].address, 0x08036000u);
  EXPECT_EQ(loaded.segments[1].size, 777u);
}

TEST(Builder, ReplacesAnEarlierOutput) {
  Inputs in;
  writeFile(in.out, "earlier image");
  ASSERT_TRUE(in.build());
  EXPECT_EQ(readFile(in.out).size(), 4u + 64 + 0x1A2C + 777);
  EXPECT_FALSE(fileExists(in.out + ".part"));
}

TEST(Builder, EmptyResourceFile) {
  Inputs in;
  writeFile(in.res, "");
  ASSERT_TRUE(in.build());
  EXPECT_EQ(readFile(in.out).size(), 68u + 0x1A2C);
}

TEST(Builder, MissingInputsKeepAnEarlierOutput) {
  struct Case {
    std::string Inputs::*path;
    std::string message; // the path printed follows
    std::string Inputs::*printed;
  };
  const Case cases[] = {
      {&Inputs::cfg, "Can't open cfg file '", &Inputs::map}, // the map's name, on purpose
      {&Inputs::map, "map file not open ", &Inputs::map},
      {&Inputs::res, "Can't open cfg file '", &Inputs::res},
      {&Inputs::object, "Can't open elf file '", &Inputs::object},
  };
  for (const Case& c : cases) {
    Inputs in;
    writeFile(in.out, "earlier image");
    std::filesystem::remove(in.*c.path);
    std::string console;
    EXPECT_FALSE(in.build(&console));
    const std::string line = c.message + in.*c.printed + (c.message.back() == '\'' ? "'\n" : "\n");
    EXPECT_NE(console.find((line)), std::string::npos) << console;
    EXPECT_EQ(console.find("successfully"), std::string::npos);
    EXPECT_EQ(readFile(in.out), "earlier image");
  }
}

TEST(Builder, ShortAndOversizedInputsAreRefused) {
  {
    Inputs in;
    writeFile(in.out, "earlier image");
    writeFile(in.cfg, configTemplate().substr(0, 63));
    std::string console;
    EXPECT_FALSE(in.build(&console));
    EXPECT_EQ(console, ("cfg file '" + in.cfg + "' is shorter than 64 bytes\n"));
    EXPECT_EQ(readFile(in.out), "earlier image");
  }
  {
    Inputs in;
    writeFile(in.out, "earlier image");
    writeFile(in.object, pattern(0x4000 + 0x1A2B, 11)); // one byte short of the program's end
    std::string console;
    EXPECT_FALSE(in.build(&console));
    EXPECT_NE(console.find(("elf file '" + in.object + "' ends at offset 0x5a2b, the program needs up to 0x5a2c\n")),
              std::string::npos)
        << console;
    EXPECT_EQ(readFile(in.out), "earlier image");
    EXPECT_FALSE(fileExists(in.out + ".part"));
  }
  {
    // exeAddr below the flash base wraps to an offset near 4 GiB.
    Inputs in;
    writeFile(in.map, mapText("0x00080000"));
    std::string console;
    EXPECT_FALSE(in.build(&console));
    EXPECT_NE(console.find("' ends at offset 0x6000, the program needs up to 0x"), std::string::npos) << console;
    EXPECT_FALSE(fileExists(in.out));
  }
  {
    Inputs in;
    writeFile(in.res, pattern(0x48000 - 64 - 0x1A2C + 1, 3));
    std::string console;
    EXPECT_FALSE(in.build(&console));
    EXPECT_NE(console.find(("AELF image too large: 294913 bytes of header, program and resources, at most 294912\n")),
              std::string::npos)
        << console;
    EXPECT_FALSE(fileExists(in.out));
  }
}

TEST(Builder, MapLineWithoutAddressIsAReportedFailure) {
  Inputs in;
  writeFile(in.out, "earlier image");
  writeFile(in.map, ".text 0x08004000\n.bss 0x20000000\n");
  std::string console;
  EXPECT_FALSE(in.build(&console));
  EXPECT_EQ(console, ("map line without address: no symbol line before '.bss 0x20000000'\n"));
  EXPECT_EQ(readFile(in.out), "earlier image");
}

// The outputs of both toolchain jobs: where they cannot be written, links, and
// what a killed run left behind. Each job runs on inputs in `dir` and writes `out`.
namespace {

namespace fs = std::filesystem;

std::string runBuild(const std::string& dir, const std::string& out) {
  Inputs in(dir);
  in.out = out;
  std::string console;
  in.build(&console);
  return console;
}

void writeRewriteInputs(const std::string& dir) {
  writeFile(dir + "funcList.txt", "loop\n");
  writeFile(dir + "out.map", "loop 0x800'f4 Code\n");
  writeFile(dir + "target.ld", "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n");
}

std::string runRewrite(const std::string& dir, const std::string& out) {
  writeRewriteInputs(dir);
  startCapture();
  rewriteLinkerScript(dir + "funcList.txt", dir + "out.map", dir + "target.ld", out);
  return endCapture();
}

// False where the system lets no test make symbolic links (Windows without the right).
bool makeLink(const std::string& target, const std::string& link) {
  std::error_code error;
  fs::create_symlink(target, link, error);
  return !error;
}

struct Job {
  const char* name;
  std::string (*run)(const std::string& dir, const std::string& out);
  std::string (*refusal)(const std::string& out); // the whole console when `out` cannot be created
};

const Job jobs[] = {
    // The builder creates its output only after reading every input and reporting the symbols.
    {"build", runBuild,
     [](const std::string& out) { return successConsole + ("Can't create output file '" + out + "'\n"); }},
    {"rewrite", runRewrite, [](const std::string&) { return std::string("target_out file not open \n"); }},
};

} // namespace

TEST(BuilderAndRewriterOutput, PlaceThatCannotBeWrittenIsReportedAtTheOutputStep) {
  for (const Job& job : jobs) {
    const std::string dir = testFolder();
    fs::create_directory(dir + "folder");
    for (const std::string& out : {dir + "missing/out", dir + "folder"}) {
      EXPECT_EQ(job.run(dir, out), job.refusal(out)) << job.name;
      EXPECT_FALSE(fileExists(out + ".part")) << job.name;
    }
    EXPECT_TRUE(fs::is_empty(dir + "folder")) << job.name;
  }
}

TEST(BuilderAndRewriterOutput, LinkStaysALinkAndItsTargetGetsTheContent) {
  for (const Job& job : jobs) {
    for (const bool targetExists : {true, false}) {
      const std::string dir = testFolder();
      job.run(dir, dir + "plain");
      fs::create_directory(dir + "real");
      if (targetExists) writeFile(dir + "real/out", "earlier output");
      if (!makeLink("real/out", dir + "link")) GTEST_SKIP() << "symbolic links cannot be made here";
      job.run(dir, dir + "link");
      EXPECT_TRUE(fs::is_symlink(dir + "link")) << job.name;
      EXPECT_EQ(fs::read_symlink(dir + "link"), "real/out") << job.name;
      EXPECT_EQ(readFile(dir + "real/out"), readFile(dir + "plain")) << job.name;
      EXPECT_FALSE(fileExists(dir + "link.part") || fileExists(dir + "real/out.part")) << job.name;
    }
  }
}

TEST(BuilderAndRewriterOutput, TemporaryLeftByAKilledRunDoesNotBlock) {
  using Leftover = void (*)(const std::string& dir, const std::string& temporary);
  const Leftover leftovers[] = {
      [](const std::string&, const std::string& temporary) { writeFile(temporary, std::string(100000, 'x')); },
      [](const std::string&, const std::string& temporary) { fs::create_directory(temporary); },
      // A link under the temporary's name must not redirect the bytes.
      [](const std::string& dir, const std::string& temporary) {
        writeFile(dir + "other", "other file");
        makeLink(dir + "other", temporary);
      },
  };
  for (const Job& job : jobs) {
    for (const Leftover leave : leftovers) {
      const std::string dir = testFolder();
      job.run(dir, dir + "plain");
      leave(dir, dir + "out.part");
      job.run(dir, dir + "out");
      EXPECT_EQ(readFile(dir + "out"), readFile(dir + "plain")) << job.name;
      EXPECT_FALSE(fs::exists(fs::symlink_status(dir + "out.part"))) << job.name;
      if (fileExists(dir + "other")) {
        EXPECT_EQ(readFile(dir + "other"), "other file") << job.name;
      }
    }
  }
}

TEST(BuilderAndRewriterDefaults, BothJobsWorkOnTheFilesTwoFoldersUp) {
  const std::string dir = testFolder();
  Inputs in(dir);
  writeRewriteInputs(dir);
  fs::create_directories(dir + "a/b");
  const fs::path previous = fs::current_path();
  fs::current_path(dir + "a/b");
  const AelfBuildPaths& build = defaultAelfBuildPaths;
  const RewritePaths& rewrite = defaultRewritePaths;
  startCapture();
  const bool built = buildAelf(build.map, build.cfg, build.object, build.res, build.output);
  const RewriteResult rewritten = rewriteLinkerScript(rewrite.funcList, rewrite.map, rewrite.script);
  endCapture();
  fs::current_path(previous);
  EXPECT_TRUE(built);
  EXPECT_EQ(readFile(in.out).size(), 4u + 64 + 0x1A2C + 777);
  EXPECT_EQ(rewritten, RewriteResult::Written);
  EXPECT_EQ(readFile(dir + "target_out.ld"), textLines("1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\nloop = 0x80000f4;\n12\n"));
}
