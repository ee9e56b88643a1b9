#include "cli/Progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "cli/JsonLine.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kInterval = std::chrono::milliseconds(100); // at most ten updates a second
constexpr int kBarWidth = 20;

std::string clock(double seconds) {
  const long s = std::lround(std::max(seconds, 0.0));
  char text[32];
  std::snprintf(text, sizeof text, "%ld:%02ld", s / 60, s % 60);
  return text;
}

// Null when the message is about no port.
Json portValue(std::string_view port) { return port.empty() ? Json(nullptr) : Json(std::string(port)); }

} // namespace

std::vector<std::string> progressLines(const std::vector<ProgressRow>& rows) {
  std::size_t width = 0;
  for (const ProgressRow& r : rows) width = std::max(width, r.port.size());
  std::vector<std::string> lines;
  for (const ProgressRow& r : rows) {
    const double fraction = r.total ? std::min(1.0, static_cast<double>(r.done) / static_cast<double>(r.total)) : 1.0;
    const double rate = r.seconds > 0 ? static_cast<double>(r.done) / 1024.0 / r.seconds : 0;
    const bool finished = r.done >= r.total;
    // Before any byte has gone there is no rate to tell the time left from.
    const std::string eta = finished   ? clock(0)
                            : rate > 0 ? clock(static_cast<double>(r.total - r.done) / 1024.0 / rate)
                                       : "-:--";
    std::string bar(kBarWidth, '-');
    std::fill_n(bar.begin(), static_cast<int>(fraction * kBarWidth), '#');
    char text[512];
    if (r.erasing) {
      std::snprintf(text, sizeof text, "%-*s [%s] erasing", static_cast<int>(width), r.port.c_str(), bar.c_str());
      lines.emplace_back(text);
      continue;
    }
    std::snprintf(text, sizeof text, "%-*s [%s] %3d%% %.1f/%.1f KiB %.1f KiB/s ETA %s", static_cast<int>(width),
                  r.port.c_str(), bar.c_str(), static_cast<int>(fraction * 100.0), static_cast<double>(r.done) / 1024.0,
                  static_cast<double>(r.total) / 1024.0, rate, eta.c_str());
    lines.emplace_back(text);
  }
  return lines;
}

Progress::Progress(const ProgressOptions& options) : options_(options) {}

Progress::PortState& Progress::stateOf(const std::string& port) {
  for (PortState& p : ports_)
    if (p.row.port == port) return p;
  ports_.emplace_back();
  ports_.back().row.port = port;
  ports_.back().started = Clock::now(); // rates and the ETA count from the first block
  return ports_.back();
}

// Text for stderr while the display may be on screen: the display is removed first
// and drawn again below the text, so neither garbles the other.
void Progress::writeStderr(std::string_view text) {
  const bool redraw = shownLines_ > 0;
  clearBar();
  std::fwrite(text.data(), 1, text.size(), stderr);
  if (redraw && (text.empty() || text.back() != '\n')) std::fputc('\n', stderr);
  std::fflush(stderr);
  if (redraw) drawBar(true);
}

void Progress::found(const std::string& port, const std::string& identity, std::uint32_t baud) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (options_.json) {
    printJsonLine(Json{{"event", "found"}, {"port", port}, {"id", identity}, {"baud", baud}});
  } else if (!options_.quiet) {
    writeStderr(port + ": found " + identity + " at " + std::to_string(baud) + " baud\n");
  }
}

void Progress::erasing(const std::string& port) {
  std::lock_guard<std::mutex> lock(mutex_);
  PortState& p = stateOf(port);
  p.row.erasing = true;
  if (options_.json) printJsonLine(Json{{"event", "erasing"}, {"port", port}});
  drawBar(true);
}

void Progress::progress(const std::string& port, std::uint64_t done, std::uint64_t total) {
  std::lock_guard<std::mutex> lock(mutex_);
  PortState& p = stateOf(port);
  if (p.row.erasing) {
    // Rates and the time left count from the first block, not from the erase.
    p.row.erasing = false;
    p.started = Clock::now();
  }
  const bool finished = done >= total && p.row.done < total;
  p.row.done = done;
  p.row.total = total;
  const auto now = Clock::now();
  p.row.seconds = std::chrono::duration<double>(now - p.started).count();
  if (options_.json && (now - p.lastJson >= kInterval || finished)) {
    p.lastJson = now;
    const double percent = total ? 100.0 * static_cast<double>(done) / static_cast<double>(total) : 100.0;
    printJsonLine(Json{{"event", "progress"},
                       {"port", port},
                       {"bytes", done},
                       {"total", total},
                       {"percent", static_cast<double>(std::lround(percent * 10.0)) / 10.0}});
  }
  drawBar(finished);
}

void Progress::drawBar(bool force) {
  if (!options_.bar || options_.quiet || ports_.empty()) return;
  const auto now = Clock::now();
  if (!force && now - lastBar_ < kInterval) return;
  lastBar_ = now;
  std::vector<ProgressRow> rows;
  for (const PortState& p : ports_) rows.push_back(p.row);
  // Back to the first line, then every line from its start; "\033[K" erases what a
  // longer earlier text left at its end.
  std::string out;
  if (shownLines_ > 1) out += "\033[" + std::to_string(shownLines_ - 1) + "A";
  const std::vector<std::string> lines = progressLines(rows);
  for (std::size_t i = 0; i < lines.size(); ++i) out += (i ? "\n\r" : "\r") + lines[i] + "\033[K";
  std::fwrite(out.data(), 1, out.size(), stderr);
  std::fflush(stderr);
  shownLines_ = static_cast<int>(lines.size());
}

// Erases the display and leaves the cursor at the start of its first line.
void Progress::clearBar() {
  if (shownLines_ == 0) return;
  std::string out;
  if (shownLines_ > 1) out += "\033[" + std::to_string(shownLines_ - 1) + "A";
  out += "\r\033[J";
  std::fwrite(out.data(), 1, out.size(), stderr);
  shownLines_ = 0;
}

void Progress::done(const std::string& port, double seconds, std::uint64_t bytes) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (options_.json)
    printJsonLine(Json{{"event", "done"},
                       {"port", port},
                       {"seconds", static_cast<double>(std::lround(seconds * 1000.0)) / 1000.0},
                       {"bytes", bytes}});
}

void Progress::error(const std::string& port, const std::string& message) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (options_.json) printJsonLine(Json{{"event", "error"}, {"port", port}, {"message", message}});
}

void Progress::log(std::string_view text, std::string_view port) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!options_.json) {
    writeStderr(text);
    return;
  }
  // One event per line of the message, without its line end ("\n" or "\r\n").
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    printJsonLine(Json{{"event", "log"}, {"port", portValue(port)}, {"text", std::string(line)}});
  }
}

void Progress::closeBar() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (shownLines_ > 0) std::fputc('\n', stderr);
  std::fflush(stderr);
  shownLines_ = 0;
}
