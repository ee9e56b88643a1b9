#include "tests/fuzz/FuzzSupport.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

const std::string& fuzzScratchDir() {
  static const std::string dir = [] {
    std::string pattern = "/tmp/qmload-fuzz-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror("mkdtemp");
      std::abort();
    }
    // Removed at exit; the path is kept in plain storage, which outlives the string.
    static char removeAtExit[64];
    std::snprintf(removeAtExit, sizeof removeAtExit, "%s", pattern.c_str());
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(removeAtExit, ignored);
    });
    return pattern;
  }();
  return dir;
}

std::string fuzzWriteFile(const std::string& name, const uint8_t* data, std::size_t size) {
  const std::string path = fuzzScratchDir() + "/" + name;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  return path;
}

std::vector<uint8_t> fuzzReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool fuzzFileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

void fuzzQuietStdout() {
  if (std::getenv("QMLOAD_FUZZ_VERBOSE") == nullptr)
    if (std::freopen("/dev/null", "w", stdout) == nullptr) std::perror("freopen");
}

std::vector<std::string> fuzzSplit(const uint8_t* data, std::size_t size, char separator, std::size_t parts) {
  std::vector<std::string> out(parts);
  std::size_t index = 0;
  for (std::size_t i = 0; i < size; ++i) {
    const char c = static_cast<char>(data[i]);
    if (c == separator && index + 1 < parts) {
      ++index;
      continue;
    }
    out[index] += c;
  }
  return out;
}
