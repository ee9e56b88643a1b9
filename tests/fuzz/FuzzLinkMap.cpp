// The link-map reader on the whole input (and with CRLF line ends); the linker-script
// rewriter on it split at NUL bytes into a function list, a map and a template.
#include "linkmap/LinkMap.h"
#include "linkmap/ReadLines.h"
#include "linkmap/Rewriter.h"
#include "tests/fuzz/FuzzSupport.h"

namespace {

LinkMap readMap(const std::string& text) {
  LinkMap table;
  std::istringstream in(text);
  readLinkMap(in, table);
  for (const auto& [name, address] : table)
    fuzzCheck(address.size() >= 9 && address.compare(0, 2, "0x") == 0 && name.find('\n') == std::string::npos,
              "bad name or address in the table");
  return table;
}

void rewrite(const std::vector<std::string>& parts) {
  const std::string list = fuzzPut("funcList.txt", parts[0]), script = fuzzPut("target.ld", parts[2]),
                    out = fuzzPath("target_out.ld");
  std::remove(out.c_str());
  const RewriteResult result = rewriteLinkerScript(list, fuzzPut("out.map", parts[1]), script, out);
  fuzzCheck(result != RewriteResult::NotWritten && std::filesystem::exists(out) &&
                !std::filesystem::exists(out + ".part"),
            "nothing written, or the temporary file left");
  const auto entries = readLines(list), templ = readLines(script), written = readLines(out);
  fuzzCheck(written.size() >= templ.size(), "output shorter than the template");
  const std::size_t inserted = written.size() - templ.size();
  fuzzCheck(inserted <= entries.size() && (templ.size() >= 11 || inserted == 0), "assignments where none belong");
  fuzzCheck(result != RewriteResult::Written || templ.size() < 11 || inserted == entries.size(),
            "all found, yet not one line per entry");
  auto trimCr = [](std::string s) { return s.erase(s.find_last_not_of('\r') + 1); };
  for (std::size_t i = 0; i < templ.size(); ++i)
    fuzzCheck(trimCr(written[i < 11 ? i : i + inserted]) == trimCr(templ[i]), "template line not copied in place");
  for (std::size_t i = 11; i < 11 + inserted; ++i)
    fuzzCheck(written[i].size() >= 4 && written[i].back() == ';' && written[i].find(" = ") != std::string::npos,
              "assignment line malformed");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const LinkMap table = readMap(text);
  std::string crlf;
  for (char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  if (text.find('\r') == std::string::npos) fuzzCheck(readMap(crlf) == table, "CRLF map reads differently");
  rewrite(fuzzSplit(data, size, 3));
  return 0;
}
