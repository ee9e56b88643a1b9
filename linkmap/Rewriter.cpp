#include "linkmap/Rewriter.h"

#include "base/AtomicFile.h"
#include "linkmap/LinkMap.h"
#include "linkmap/ReadLines.h"

#include <fstream>
#include <iostream>
#include <vector>

namespace {

const int insertAfterLine = 11;

// Writes the assignment block; false when some entry was not in the map.
bool writeAssignments(const std::vector<std::string>& functions, const LinkMap& table, std::ostream& out) {
  bool allFound = true;
  for (std::string entry : functions) {
    std::string stripped;
    for (char c : entry)
      if (c != ' ') stripped += c;
    entry = stripped;

    std::string lookupName = entry;
    std::string writtenName = entry;
    const std::size_t arrow = entry.find("->");
    const bool rename = entry.size() >= 2 && arrow != std::string::npos;
    if (rename) {
      lookupName = entry.substr(0, arrow);
      writtenName = entry.substr(arrow + 2);
    }

    const auto found = table.find(lookupName);
    if (found == table.end()) {
      std::cout << "func " << lookupName << " not found" << std::endl;
      allFound = false;
      continue;
    }
    if (rename) std::cout << "replace " << lookupName << " on " << writtenName << std::endl;
    out << writtenName << " = " << found->second << ";" << std::endl;
  }
  return allFound;
}

} // namespace

RewriteResult rewriteLinkerScript(const std::string& funcListPath, const std::string& mapPath,
                                  const std::string& scriptPath, const std::string& outPath) {
  const std::vector<std::string> functions = readLines(funcListPath);

  std::ifstream map(mapPath);
  if (!map.is_open()) {
    std::cout << "map file not open " << mapPath << std::endl;
    return RewriteResult::NotWritten;
  }
  std::ifstream script(scriptPath);
  if (!script.is_open()) {
    std::cout << "target file not open " << scriptPath << std::endl;
    return RewriteResult::NotWritten;
  }
  // The output goes to a temporary file first, so a failed run keeps the old one.
  AtomicFile output;
  if (!output.open(outPath, false)) {
    std::cout << "target_out file not open " << std::endl;
    return RewriteResult::NotWritten;
  }

  LinkMap table;
  readLinkMap(map, table);

  bool allFound = true;
  int written = 0;
  std::string line;
  while (readTextLine(script, line)) {
    output.stream() << line << std::endl;
    if (++written == insertAfterLine) allFound = writeAssignments(functions, table, output.stream());
  }
  script.close();
  if (!output.commit()) {
    std::cout << "target_out file not open " << std::endl;
    return RewriteResult::NotWritten;
  }
  return allFound ? RewriteResult::Written : RewriteResult::WrittenSomeMissing;
}
