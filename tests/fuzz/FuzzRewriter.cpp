// The linker-script rewriter on an arbitrary function list, map and template (one
// input, split at NUL bytes). Checks that the output is the template with at most
// one assignment line per list entry inserted after its 11th line, that nothing is
// inserted into a shorter template, and that no temporary file is left behind.
#include "linkmap/ReadLines.h"
#include "linkmap/Rewriter.h"
#include "tests/fuzz/FuzzSupport.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::string trimCarriageReturns(std::string s) {
  while (!s.empty() && s.back() == '\r') s.pop_back();
  return s;
}

void fail(const char* what) {
  std::fprintf(stderr, "rewriter: %s\n", what);
  std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzQuietStdout();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::vector<std::string> parts = fuzzSplit(data, size, '\0', 3);
  auto put = [](const char* name, const std::string& s) {
    return fuzzWriteFile(name, reinterpret_cast<const uint8_t*>(s.data()), s.size());
  };
  const std::string funcList = put("funcList.txt", parts[0]);
  const std::string map = put("out.map", parts[1]);
  const std::string script = put("target.ld", parts[2]);
  const std::string out = fuzzScratchDir() + "/target_out.ld";
  std::remove(out.c_str());

  const RewriteResult result = rewriteLinkerScript(funcList, map, script, out);
  if (fuzzFileExists(out + ".part")) fail("temporary file left behind");
  if (result == RewriteResult::NotWritten) fail("inputs exist, yet nothing was written");
  if (!fuzzFileExists(out)) fail("no output file");

  const std::vector<std::string> entries = readLines(funcList);
  const std::vector<std::string> templ = readLines(script);
  const std::vector<std::string> written = readLines(out);
  if (written.size() < templ.size()) fail("output shorter than the template");
  const std::size_t inserted = written.size() - templ.size();
  if (inserted > entries.size()) fail("more assignment lines than list entries");
  if (templ.size() < 11 && inserted != 0) fail("assignments inserted into a template of fewer than 11 lines");
  if (result == RewriteResult::Written && templ.size() >= 11 && inserted != entries.size())
    fail("all found, yet not one line per entry");
  for (std::size_t i = 0; i < templ.size(); ++i) {
    const std::size_t at = i < 11 ? i : i + inserted;
    if (trimCarriageReturns(written[at]) != trimCarriageReturns(templ[i])) fail("template line not copied in place");
  }
  for (std::size_t i = 11; i < 11 + inserted; ++i) {
    const std::string& line = written[i];
    if (line.size() < 4 || line.back() != ';' || line.find(" = ") == std::string::npos)
      fail("assignment line malformed");
  }
  return 0;
}
