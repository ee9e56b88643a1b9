#pragma once
// Writes a file through a temporary file beside it, renamed into place only when
// everything was written. A failed or killed run leaves the old file untouched.
//
// An output path that is a symbolic link is written through the link: the
// temporary file goes beside the file the link finally names, that file gets the
// new content, and the link stays a link.
#include <fstream>
#include <string>

class AtomicFile {
public:
  AtomicFile() = default;
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // Creates the temporary file "<target>.part" in binary or text mode; whatever
  // an interrupted earlier run left under that name is removed first. False when
  // the output's place cannot be written (a missing or read-only folder, or a
  // folder standing where the file should be).
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
