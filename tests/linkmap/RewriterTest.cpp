#include "linkmap/Rewriter.h"
#include "tests/linkmap/TestFiles.h"

namespace {

const char* const mapText = "ModbusHGroups_Table       0x800'4000   0x40  Data  Gb  regs.o [1]\n"
                            "ApplicationEntryPointWithAVeryLongName\n"
                            "                          0x800'42a9         Code  Gb  start.o [1]\n"
                            "loop                      0x800'f4     0x1c  Code  Gb  main.o [1]\n"
                            "ram_buffer                0x2000'0100  0x10  Data  Lc  main.o [1]\n";

std::string templateLines(int count) {
  std::string text;
  for (int i = 1; i <= count; ++i) text += "L" + std::to_string(i) + "\n";
  return text;
}

struct RewriteRun {
  RewriteResult result;
  std::string console;
  std::string output;
};

// Runs the rewrite in a fresh folder with the given inputs.
RewriteRun rewrite(const std::string& dir, const std::string& funcs, const std::string& map,
                   const std::string& script) {
  writeFile(dir + "funcList.txt", funcs);
  writeFile(dir + "out.map", map);
  writeFile(dir + "target.ld", script);
  startCapture();
  const RewriteResult result =
      rewriteLinkerScript(dir + "funcList.txt", dir + "out.map", dir + "target.ld", dir + "target_out.ld");
  const std::string console = endCapture();
  return {result, console, readFile(dir + "target_out.ld")};
}

} // namespace

TEST(Rewriter, WorkedExample) {
  const RewriteRun run =
      rewrite(testFolder(),
              "ModbusHGroups_Table\nloop\nApplicationEntryPointWithAVeryLongName -> __entryPoint__\nunused_symbol\n",
              mapText, templateLines(13));
  EXPECT_EQ(run.result, RewriteResult::WrittenSomeMissing);
  EXPECT_EQ(run.console, ("replace ApplicationEntryPointWithAVeryLongName on __entryPoint__\n"
                          "func unused_symbol not found\n"));
  EXPECT_EQ(run.output, textLines(templateLines(11) +
                                  "ModbusHGroups_Table = 0x8004000;\nloop = 0x80000f4;\n__entryPoint__ = 0x80042a9;\n"
                                  "L12\nL13\n"));
}

TEST(Rewriter, CrlfInputsGiveTheSameResult) {
  const std::string funcs = "loop\nApplicationEntryPointWithAVeryLongName -> __entryPoint__\n";
  const RewriteRun lf = rewrite(testFolder(), funcs, mapText, templateLines(12));
  const RewriteRun crlf = rewrite(testFolder(), withCrlf(funcs), withCrlf(mapText), withCrlf(templateLines(12)));
  EXPECT_EQ(lf.result, RewriteResult::Written);
  EXPECT_EQ(crlf.result, RewriteResult::Written);
  EXPECT_EQ(crlf.console, lf.console);
  EXPECT_EQ(crlf.output, lf.output);
  EXPECT_EQ(lf.output, textLines(templateLines(11) + "loop = 0x80000f4;\n__entryPoint__ = 0x80042a9;\nL12\n"));
}

TEST(Rewriter, ShortTemplatesAndTheInsertionPoint) {
  // Fewer than 11 lines: a plain copy, no look-ups, nothing printed.
  RewriteRun run = rewrite(testFolder(), "missing\n", mapText, templateLines(10));
  EXPECT_EQ(run.result, RewriteResult::Written);
  EXPECT_EQ(run.console, "");
  EXPECT_EQ(run.output, textLines(templateLines(10)));
  // Exactly 11 lines: the block comes at the end.
  run = rewrite(testFolder(), "loop\n", mapText, templateLines(11));
  EXPECT_EQ(run.output, textLines(templateLines(11) + "loop = 0x80000f4;\n"));
}

TEST(Rewriter, EntryForms) {
  const std::string map = std::string(mapText) + "tableWithALongName\n   0x800'0042 Code\n";
  const RewriteRun run = rewrite(testFolder(),
                                 "Modbus HGroups_Table\n" // blanks removed before the look-up
                                 "loop\nloop\n"           // listed twice, written twice
                                 "\n"                     // empty entry
                                 "nothere -> there\n"     // rename of a missing name
                                 "->x\n"                  // empty look-up name
                                 "tableWithALongName->buf\n",
                                 map, templateLines(11));
  EXPECT_EQ(run.result, RewriteResult::WrittenSomeMissing);
  EXPECT_EQ(run.console, ("func  not found\nfunc nothere not found\nfunc  not found\n"
                          "replace tableWithALongName on buf\n"));
  EXPECT_EQ(run.output,
            textLines(templateLines(11) + "ModbusHGroups_Table = 0x8004000;\nloop = 0x80000f4;\nloop = 0x80000f4;\n"
                                          "buf = 0x8000042;\n"));
}

TEST(Rewriter, EmptyNameFromTheMapCanBeRenamed) {
  const RewriteRun run = rewrite(testFolder(), "->x\n", "  0x800'1000 Code\n", templateLines(11));
  EXPECT_EQ(run.result, RewriteResult::Written);
  EXPECT_EQ(run.console, ("replace  on x\n"));
  EXPECT_EQ(run.output, textLines(templateLines(11) + "x = 0x8001000;\n"));
}

TEST(Rewriter, MissingFunctionListCopiesTheTemplate) {
  const std::string dir = testFolder();
  writeFile(dir + "out.map", mapText);
  writeFile(dir + "target.ld", templateLines(12));
  startCapture();
  EXPECT_EQ(rewriteLinkerScript(dir + "none.txt", dir + "out.map", dir + "target.ld", dir + "target_out.ld"),
            RewriteResult::Written);
  EXPECT_EQ(endCapture(), "");
  EXPECT_EQ(readFile(dir + "target_out.ld"), textLines(templateLines(12)));
}

TEST(Rewriter, UnopenableFilesLeaveTheOutputUntouched) {
  const std::string dir = testFolder();
  writeFile(dir + "funcList.txt", "loop\n");
  writeFile(dir + "out.map", mapText);
  writeFile(dir + "target.ld", templateLines(12));
  writeFile(dir + "target_out.ld", "previous output\n");

  startCapture();
  EXPECT_EQ(rewriteLinkerScript(dir + "funcList.txt", dir + "no.map", dir + "target.ld", dir + "target_out.ld"),
            RewriteResult::NotWritten);
  EXPECT_EQ(endCapture(), ("map file not open " + dir + "no.map\n"));

  startCapture();
  EXPECT_EQ(rewriteLinkerScript(dir + "funcList.txt", dir + "out.map", dir + "no.ld", dir + "target_out.ld"),
            RewriteResult::NotWritten);
  EXPECT_EQ(endCapture(), ("target file not open " + dir + "no.ld\n"));
  EXPECT_EQ(readFile(dir + "target_out.ld"), "previous output\n");
}

TEST(Rewriter, ReplacesAnEarlierOutput) {
  const std::string dir = testFolder();
  writeFile(dir + "target_out.ld", "previous output\n");
  const RewriteRun run = rewrite(dir, "loop\n", mapText, templateLines(11));
  EXPECT_EQ(run.result, RewriteResult::Written);
  EXPECT_EQ(run.output, textLines(templateLines(11) + "loop = 0x80000f4;\n"));
  EXPECT_FALSE(fileExists(dir + "target_out.ld.part"));
}
