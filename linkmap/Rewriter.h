#pragma once
// Rewrites the linker-script template: after its 11th line one assignment
// "name = address;" per function-list entry found in the link map.
#include <string>

enum class RewriteResult {
  Written,            // output written, every listed function found
  WrittenSomeMissing, // output written, at least one "func ... not found"
  NotWritten          // an input or the output could not be opened
};

RewriteResult rewriteLinkerScript(const std::string& funcListPath, const std::string& mapPath,
                                  const std::string& scriptPath, const std::string& outPath = "./../../target_out.ld");
