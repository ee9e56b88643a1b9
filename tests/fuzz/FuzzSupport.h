#pragma once
// Each fuzz target's checks (an abort keeps the input), scratch files, and with
// QMLOAD_FUZZ_REPLAY a main that replays the corpus without libFuzzer.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

inline void fuzzCheck(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
  std::abort();
}

// <this process's scratch folder>/<name>; the folder goes at exit.
inline std::string fuzzPath(const std::string& name) {
  static char dir[] = "/tmp/qmload-fuzz-XXXXXX";
  static const bool made = mkdtemp(dir) && !std::atexit([] { std::filesystem::remove_all(dir); });
  fuzzCheck(made, "cannot make a scratch folder");
  return std::string(dir) + "/" + name;
}

inline std::string fuzzPut(const std::string& name, const std::string& bytes) {
  return std::ofstream(fuzzPath(name), std::ios::binary) << bytes, fuzzPath(name);
}

inline std::string fuzzRead(const std::string& path) {
  std::ostringstream out;
  return out << std::ifstream(path, std::ios::binary).rdbuf(), out.str();
}

// The input split at NUL bytes into `parts` files; the last keeps any further NULs.
inline std::vector<std::string> fuzzSplit(const uint8_t* data, std::size_t size, std::size_t parts) {
  std::vector<std::string> out(1);
  for (std::size_t i = 0; i < size; ++i)
    if (data[i] != 0 || out.size() == parts)
      out.back() += char(data[i]);
    else
      out.emplace_back();
  out.resize(parts);
  return out;
}

// The readers' diagnostics on standard output only slow the fuzzer down.
extern "C" int LLVMFuzzerInitialize(int*, char***) { return std::freopen("/dev/null", "w", stdout) == nullptr; }

#ifdef QMLOAD_FUZZ_REPLAY
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

int main(int, char** argv) {
  LLVMFuzzerInitialize(nullptr, nullptr);
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::fprintf(stderr, "input %s\n", entry.path().c_str());
    const std::string bytes = fuzzRead(entry.path()); // copied at its exact size: reads past the end show
    const std::vector<uint8_t> data(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(data.data(), data.size()), ++count;
  }
  return count > 0 ? 0 : 1; // an empty or missing corpus fails
}
#endif
