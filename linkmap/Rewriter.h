#pragma once
// Rewrites the linker-script template: after its 11th line one assignment
// "name = address;" per function-list entry found in the link map.
#include <string>

// The start screen's fixed paths for "parse map1", two folders above the working
// directory; the command line's defaults too.
struct RewritePaths {
  const char* funcList;
  const char* map;
  const char* script;
  const char* output;
};
inline constexpr RewritePaths defaultRewritePaths = {"./../../funcList.txt", "./../../out.map", "./../../target.ld",
                                                     "./../../target_out.ld"};

enum class RewriteResult {
  Written,            // output written, every listed function found
  WrittenSomeMissing, // output written, at least one "func ... not found"
  NotWritten          // an input or the output could not be opened
};

// Prints its messages on the console (base/Console.h).
RewriteResult rewriteLinkerScript(const std::string& funcListPath, const std::string& mapPath,
                                  const std::string& scriptPath,
                                  const std::string& outPath = defaultRewritePaths.output);
