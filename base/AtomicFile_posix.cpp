#include "base/AtomicFile.h"

#include <cstdio>

// rename() replaces an existing target atomically on POSIX file systems.
bool replaceFile(const std::string& from, const std::string& to) { return std::rename(from.c_str(), to.c_str()) == 0; }
