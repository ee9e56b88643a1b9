#include "linkmap/Rewriter.h"

#include "base/AtomicFile.h"
#include "base/Console.h"
#include "linkmap/LinkMap.h"
#include "linkmap/ReadLines.h"

#include <fstream>
#include <vector>

namespace {

const int insertAfterLine = 11;

// One function-list entry: a plain name, or "mapName->scriptName".
struct Assignment {
  std::string lookupName;
  std::string writtenName;
  bool rename = false;
};

// Only blanks are removed; tabs and every other character stay.
std::string withoutBlanks(const std::string& entry) {
  std::string stripped;
  for (char c : entry)
    if (c != ' ') stripped += c;
  return stripped;
}

Assignment parseEntry(const std::string& listed) {
  const std::string entry = withoutBlanks(listed);
  const std::size_t arrow = entry.find("->");
  if (entry.size() < 2 || arrow == std::string::npos) return {entry, entry, false};
  return {entry.substr(0, arrow), entry.substr(arrow + 2), true};
}

// Writes the assignment of one entry; false when its name is not in the map.
bool writeAssignment(const Assignment& assignment, const LinkMap& table, std::ostream& out) {
  const auto found = table.find(assignment.lookupName);
  if (found == table.end()) {
    consolePuts("func " + assignment.lookupName + " not found");
    return false;
  }
  if (assignment.rename) consolePuts("replace " + assignment.lookupName + " on " + assignment.writtenName);
  out << assignment.writtenName << " = " << found->second << ";" << std::endl;
  return true;
}

// Writes the assignment block; false when some entry was not in the map.
bool writeAssignments(const std::vector<std::string>& functions, const LinkMap& table, std::ostream& out) {
  bool allFound = true;
  for (const std::string& entry : functions) allFound = writeAssignment(parseEntry(entry), table, out) && allFound;
  return allFound;
}

// Copies the template line by line with the assignment block after its 11th
// line; a shorter template is copied as it is. False when some entry was missing.
bool copyTemplate(std::istream& script, const std::vector<std::string>& functions, const LinkMap& table,
                  std::ostream& out) {
  bool allFound = true;
  int written = 0;
  std::string line;
  while (readTextLine(script, line)) {
    out << line << std::endl;
    if (++written == insertAfterLine) allFound = writeAssignments(functions, table, out);
  }
  return allFound;
}

const char* const outputNotOpen = "target_out file not open "; // the path is not named; the blank stays

} // namespace

// The inputs are opened first and the output only then, so a missing map or
// template leaves an existing output untouched. The output goes to a temporary
// file first, so a failed run keeps the old one.
RewriteResult rewriteLinkerScript(const std::string& funcListPath, const std::string& mapPath,
                                  const std::string& scriptPath, const std::string& outPath) {
  const std::vector<std::string> functions = readLines(funcListPath);
  std::ifstream map(mapPath);
  if (!map.is_open()) {
    consolePuts("map file not open " + mapPath);
    return RewriteResult::NotWritten;
  }
  std::ifstream script(scriptPath);
  if (!script.is_open()) {
    consolePuts("target file not open " + scriptPath);
    return RewriteResult::NotWritten;
  }
  AtomicFile output;
  if (!output.open(outPath, false)) {
    consolePuts(outputNotOpen);
    return RewriteResult::NotWritten;
  }
  LinkMap table;
  readLinkMap(map, table);
  const bool allFound = copyTemplate(script, functions, table, output.stream());
  script.close();
  if (!output.commit()) {
    consolePuts(outputNotOpen);
    return RewriteResult::NotWritten;
  }
  return allFound ? RewriteResult::Written : RewriteResult::WrittenSomeMissing;
}
