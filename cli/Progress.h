#pragma once
// What qmload-cli shows while devices are found and flashed: a progress bar on a
// terminal's stderr, or one JSON object per line on stdout. Safe to call from the
// threads of several jobs at once.
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "cli/FlashJob.h"

struct ProgressOptions {
  bool json = false;
  bool quiet = false;
  bool bar = false; // stderr is a terminal
};

class Progress : public JobReporter {
public:
  explicit Progress(const ProgressOptions& options);

  void found(const std::string& port, const std::string& identity, std::uint32_t baud) override;
  void progress(const std::string& port, std::uint64_t done, std::uint64_t total) override;
  void done(const std::string& port, double seconds, std::uint64_t bytes);
  void error(const std::string& port, const std::string& message);
  // Ends the bar's line so that later text starts on a fresh one.
  void closeBar();

private:
  struct PortProgress {
    std::uint64_t done = 0;
    std::uint64_t total = 0;
    std::chrono::steady_clock::time_point lastJson{};
  };
  void drawBar(bool force);
  void emit(const std::string& line);

  ProgressOptions options_;
  std::mutex mutex_;
  std::map<std::string, PortProgress> ports_;
  std::chrono::steady_clock::time_point started_{};
  bool flashing_ = false;
  std::chrono::steady_clock::time_point lastBar_{};
  bool barShown_ = false;
};

// JSON string literal for text (quotes, backslashes and control characters escaped).
std::string jsonString(const std::string& text);
// True when the process's standard error is a terminal.
bool stderrIsTerminal();
