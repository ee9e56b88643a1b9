#pragma once
// What qmload-cli shows while devices are found and flashed: one progress line per
// port on a terminal's stderr, or one JSON object per line on stdout; and where the
// lower layers' console messages go. Safe to call from the threads of several jobs
// and from the console route at once.
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "cli/FlashJob.h"

struct ProgressOptions {
  bool json = false;
  bool quiet = false;
  bool bar = false; // stderr is a terminal
};

// One port's state as the display shows it.
struct ProgressRow {
  std::string port;
  std::uint64_t done = 0;
  std::uint64_t total = 0;
  double seconds = 0;   // since this port's first block
  bool erasing = false; // waiting for the answer to start
};

// The display's lines, one per row in the given order: the port name (padded to the
// longest), a bar, percent, KiB done of total, KiB/s and the time left.
std::vector<std::string> progressLines(const std::vector<ProgressRow>& rows);

class Progress : public JobReporter {
public:
  explicit Progress(const ProgressOptions& options);

  void found(const std::string& port, const std::string& identity, std::uint32_t baud) override;
  void progress(const std::string& port, std::uint64_t done, std::uint64_t total) override;
  void erasing(const std::string& port) override;
  void done(const std::string& port, double seconds, std::uint64_t bytes);
  void error(const std::string& port, const std::string& message);
  // A console message of the lower layers (text with its line end, and the port it
  // is about, empty when none): a "log" event with --json, else a line on stderr.
  void log(std::string_view text, std::string_view port);
  // Ends the display's last line so that later text starts on a fresh one.
  void closeBar();

private:
  struct PortState {
    ProgressRow row;
    std::chrono::steady_clock::time_point started{};
    std::chrono::steady_clock::time_point lastJson{};
  };
  PortState& stateOf(const std::string& port);
  void writeStderr(std::string_view text);
  void drawBar(bool force);
  void clearBar();

  ProgressOptions options_;
  std::mutex mutex_;
  std::vector<PortState> ports_; // in the order their first block came
  std::chrono::steady_clock::time_point lastBar_{};
  int shownLines_ = 0; // display lines on screen; the cursor is at the end of the last
};

// True when the process's standard error is a terminal.
bool stderrIsTerminal();
