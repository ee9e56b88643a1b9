#pragma once
// File helpers of the tests: a fresh folder per test, whole-file reads and writes,
// and stdout captured at its file descriptor.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

inline std::string testName() {
  const auto* info = testing::UnitTest::GetInstance()->current_test_info();
  return std::string(info->test_suite_name()) + "." + info->name();
}
inline std::string testFolder() {
  const auto dir = std::filesystem::temp_directory_path() / "qmload-tests" / testName();
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir.string() + "/";
}
inline void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}
// Text mode reads CR LF back as LF on Windows.
inline std::string readFile(const std::string& path, std::ios::openmode mode = std::ios::binary) {
  std::ostringstream text;
  text << std::ifstream(path, mode).rdbuf();
  return text.str();
}
inline std::string withCrlf(std::string text) {
  for (std::size_t i = 0; (i = text.find('\n', i)) != std::string::npos; i += 2) text.insert(i, 1, '\r');
  return text;
}

// Stdout goes to a file from startCapture on. endCapture reads that file before
// anything flushes stdout: text the code under test left in a buffer is missing.
inline const std::string capturePath = (std::filesystem::temp_directory_path() / "qmload-stdout-").string();
inline int savedStdout = -1;
inline void startCapture() {
  std::fflush(stdout);
  const int fd = open((capturePath + testName()).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  savedStdout = dup(1);
  dup2(fd, 1);
  close(fd);
}
inline std::string endCapture() {
  const std::string text = readFile(capturePath + testName(), std::ios::in);
  std::fflush(stdout);
  dup2(savedStdout, 1);
  close(savedStdout);
  return text;
}
// What `run` returns and what it wrote to stdout (braces: run() goes first).
template <class Run>
auto captured(Run run) {
  startCapture();
  return std::pair{run(), endCapture()};
}
