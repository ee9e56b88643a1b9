#include "cli/Progress.h"

#include <cstdio>

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kInterval = std::chrono::milliseconds(100); // at most ten updates a second
constexpr int kBarWidth = 30;

std::string clock(double seconds) {
  if (seconds < 0) seconds = 0;
  const long s = static_cast<long>(seconds + 0.5);
  char text[32];
  std::snprintf(text, sizeof text, "%ld:%02ld", s / 60, s % 60);
  return text;
}

} // namespace

std::string jsonString(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
    case '"': out += "\\\""; break;
    case '\\': out += "\\\\"; break;
    case '\n': out += "\\n"; break;
    case '\r': out += "\\r"; break;
    case '\t': out += "\\t"; break;
    default:
      if (c < 0x20) {
        char esc[8];
        std::snprintf(esc, sizeof esc, "\\u%04x", c);
        out += esc;
      } else {
        out += static_cast<char>(c);
      }
    }
  }
  return out + "\"";
}

Progress::Progress(const ProgressOptions& options) : options_(options) {}

void Progress::emit(const std::string& line) {
  std::fputs(line.c_str(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

void Progress::found(const std::string& port, const std::string& identity, std::uint32_t baud) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (options_.json) {
    emit("{\"event\":\"found\",\"port\":" + jsonString(port) + ",\"id\":" + jsonString(identity) +
         ",\"baud\":" + std::to_string(baud) + "}");
  } else if (!options_.quiet) {
    if (barShown_) std::fputc('\n', stderr);
    barShown_ = false;
    std::fprintf(stderr, "%s: found %s at %u baud\n", port.c_str(), identity.c_str(), static_cast<unsigned>(baud));
  }
}

void Progress::progress(const std::string& port, std::uint64_t done, std::uint64_t total) {
  std::lock_guard<std::mutex> lock(mutex_);
  PortProgress& p = ports_[port];
  if (!flashing_) {
    // Rates and the ETA count from the first block, not from the search for the device.
    flashing_ = true;
    started_ = Clock::now();
  }
  const bool finished = done >= total && p.done < total;
  p.done = done;
  p.total = total;
  const auto now = Clock::now();
  if (options_.json && (now - p.lastJson >= kInterval || finished)) {
    p.lastJson = now;
    const double percent = total ? 100.0 * static_cast<double>(done) / static_cast<double>(total) : 100.0;
    char pct[16];
    std::snprintf(pct, sizeof pct, "%.1f", percent);
    emit("{\"event\":\"progress\",\"port\":" + jsonString(port) + ",\"bytes\":" + std::to_string(done) +
         ",\"total\":" + std::to_string(total) + ",\"percent\":" + pct + "}");
  }
  drawBar(finished);
}

void Progress::drawBar(bool force) {
  if (!options_.bar || options_.quiet) return;
  const auto now = Clock::now();
  if (!force && now - lastBar_ < kInterval) return;
  lastBar_ = now;
  std::uint64_t done = 0, total = 0;
  for (const auto& entry : ports_) {
    done += entry.second.done;
    total += entry.second.total;
  }
  const double fraction = total ? static_cast<double>(done) / static_cast<double>(total) : 1.0;
  const double elapsed = std::chrono::duration<double>(now - started_).count();
  const double rate = elapsed > 0 ? static_cast<double>(done) / 1024.0 / elapsed : 0;
  const double eta = rate > 0 ? (static_cast<double>(total - done) / 1024.0) / rate : 0;
  std::string bar(kBarWidth, '-');
  for (int i = 0; i < static_cast<int>(fraction * kBarWidth) && i < kBarWidth; ++i) bar[i] = '#';
  std::string who = ports_.size() == 1 ? ports_.begin()->first : std::to_string(ports_.size()) + " ports";
  std::fprintf(stderr, "\r%s [%s] %3d%% %.1f/%.1f KiB %.1f KiB/s ETA %s ", who.c_str(), bar.c_str(),
               static_cast<int>(fraction * 100.0), static_cast<double>(done) / 1024.0,
               static_cast<double>(total) / 1024.0, rate, clock(eta).c_str());
  std::fflush(stderr);
  barShown_ = true;
}

void Progress::done(const std::string& port, double seconds, std::uint64_t bytes) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (options_.json) {
    char secs[32];
    std::snprintf(secs, sizeof secs, "%.3f", seconds);
    emit("{\"event\":\"done\",\"port\":" + jsonString(port) + ",\"seconds\":" + secs +
         ",\"bytes\":" + std::to_string(bytes) + "}");
  }
}

void Progress::error(const std::string& port, const std::string& message) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (options_.json)
    emit("{\"event\":\"error\",\"port\":" + jsonString(port) + ",\"message\":" + jsonString(message) + "}");
}

void Progress::closeBar() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (barShown_) std::fputc('\n', stderr);
  barShown_ = false;
}
