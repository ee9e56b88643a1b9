#pragma once
// Small file helpers for the toolchain tests: a fresh folder per test and
// whole-file reads and writes.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

inline std::string testFolder() {
  const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
  std::filesystem::path dir = std::filesystem::temp_directory_path() / "qmload-tests" /
                              (std::string(info->test_suite_name()) + "." + info->name());
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir.string() + "/";
}

inline void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline bool fileExists(const std::string& path) { return std::filesystem::exists(path); }

// Text written to a file in text mode: on Windows every line end is CR LF.
// (Captured standard output is read back in text mode, so it always has LF.)
inline std::string textLines(const std::string& lfText) {
#ifdef _WIN32
  std::string out;
  for (char c : lfText) {
    if (c == '\n') out += '\r';
    out += c;
  }
  return out;
#else
  return lfText;
#endif
}

inline std::string withCrlf(const std::string& lfText) {
  std::string out;
  for (char c : lfText) {
    if (c == '\n') out += '\r';
    out += c;
  }
  return out;
}

inline void startCapture() { testing::internal::CaptureStdout(); }

inline std::string endCapture() {
  std::cout << std::flush;
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}
