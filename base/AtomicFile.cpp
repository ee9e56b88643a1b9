#include "base/AtomicFile.h"

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace {

// The path a chain of symbolic links finally names (it need not exist yet). A
// path that is no link comes back unchanged, byte for byte. After 40 links, as
// many as the system follows, the chain is taken as a loop and the path kept:
// writing it then fails as a plain open would.
std::string finalTarget(const std::string& path) {
  fs::path current(path);
  bool followed = false;
  std::error_code error;
  for (int links = 0; links < 40 && fs::is_symlink(fs::symlink_status(current, error)); ++links) {
    const fs::path next = fs::read_symlink(current, error);
    if (error) break;
    current = next.is_absolute() ? next : current.parent_path() / next;
    followed = true;
  }
  return followed ? current.string() : path;
}

void removeQuietly(const std::string& path) {
  std::error_code error;
  fs::remove(path, error);
}

} // namespace

AtomicFile::~AtomicFile() {
  if (pending) {
    out.close();
    removeQuietly(temporary);
  }
}

bool AtomicFile::open(const std::string& path, bool binary) {
  target = finalTarget(path);
  temporary = target + ".part";
  std::error_code error;
  // The rename would fail only at the end; refuse a folder at once, as opening it would.
  if (fs::is_directory(target, error)) return false;
  // A temporary file of a killed run (or a link or empty folder under its name)
  // must neither block this run nor redirect its bytes.
  removeQuietly(temporary);
  std::ios::openmode mode = std::ios::out | std::ios::trunc;
  if (binary) mode |= std::ios::binary;
  out.open(temporary, mode);
  pending = out.is_open();
  return pending;
}

bool AtomicFile::commit() {
  if (!pending) return false;
  pending = false;
  out.flush();
  const bool written = out.good();
  out.close();
  if (written && !out.fail() && replaceFile(temporary, target)) return true;
  removeQuietly(temporary);
  return false;
}
