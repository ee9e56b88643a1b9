#include "base/AtomicFile.h"

#include <windows.h>

// rename() refuses an existing target on Windows; MoveFileEx replaces it.
bool replaceFile(const std::string& from, const std::string& to) {
  return MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}
