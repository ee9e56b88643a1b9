#pragma once
// Writes a file through a temporary file beside it, renamed into place only when
// everything was written. A failed or killed run leaves the old file untouched.
#include <fstream>
#include <string>

class AtomicFile {
public:
  AtomicFile() = default;
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // Opens the temporary file "<path>.part" in binary or text mode.
  bool open(const std::string& path, bool binary);
  std::ofstream& stream() { return out; }
  // Closes the temporary file and renames it over the target. False when a
  // write or the rename failed; the temporary file is then removed.
  bool commit();

private:
  std::string target;
  std::string temporary;
  std::ofstream out;
  bool pending = false;
};

// Replaces `to` by `from` in one step (platform file).
bool replaceFile(const std::string& from, const std::string& to);
