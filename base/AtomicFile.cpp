#include "base/AtomicFile.h"

#include <cstdio>

AtomicFile::~AtomicFile() {
  if (pending) {
    out.close();
    std::remove(temporary.c_str());
  }
}

bool AtomicFile::open(const std::string& path, bool binary) {
  target = path;
  temporary = path + ".part";
  std::ios::openmode mode = std::ios::out | std::ios::trunc;
  if (binary) mode |= std::ios::binary;
  out.open(temporary, mode);
  pending = out.is_open();
  return pending;
}

bool AtomicFile::commit() {
  if (!pending) return false;
  out.flush();
  bool good = out.good();
  out.close();
  good = good && !out.fail();
  if (good && replaceFile(temporary, target)) {
    pending = false;
    return true;
  }
  std::remove(temporary.c_str());
  pending = false;
  return false;
}
