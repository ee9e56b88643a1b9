// qmload-sim: a simulated device on a pseudo-terminal. See SimDevice.h for the
// timing, Faults.h for the faults, RequestParser.h for how requests are framed.
#include "base/AtomicFile.h"
#include "base/Wire.h"
#include "sim/PtyLine.h"
#include "sim/RequestParser.h"
#include "sim/SimDevice.h"
#include "sim/SimOptions.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <deque>
#include <poll.h>
#include <sys/prctl.h>
#include <string>
#include <time.h>

namespace {

volatile std::sig_atomic_t gStop = 0;
constexpr std::size_t kMaxPendingReplies = 64;

void onSignal(int) { gStop = 1; }

std::int64_t nowUs() {
  using namespace std::chrono;
  return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

class Log {
public:
  explicit Log(bool on) : on_(on), startUs_(nowUs()) {}
  void line(const std::string& text) const {
    if (!on_) return;
    std::fprintf(stderr, "[%10.3f ms] %s\n", static_cast<double>(nowUs() - startUs_) / 1000.0, text.c_str());
  }

private:
  bool on_;
  std::int64_t startUs_;
};

// Writes the flash to path through a temporary file, so readers never see half of it.
bool writeDump(const std::string& path, const std::vector<std::uint8_t>& flash) {
  AtomicFile out;
  if (!out.open(path, true)) return false;
  out.stream().write(reinterpret_cast<const char*>(flash.data()), static_cast<std::streamsize>(flash.size()));
  return out.commit();
}

void dumpFlash(const SimOptions& opt, SimDevice& device, const Log& log) {
  if (opt.dump.empty()) return;
  if (writeDump(opt.dump, device.model().flash()))
    log.line("flash written to " + opt.dump);
  else
    std::fprintf(stderr, "qmload-sim: cannot write %s\n", opt.dump.c_str());
}

void installSignals(sigset_t& waitMask) {
  struct sigaction sa {};
  sa.sa_handler = onSignal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGTERM, &sa, nullptr);
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGHUP, &sa, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  // The stop signals are held back except while waiting in ppoll, so none can
  // slip in between the check of gStop and the wait.
  sigset_t block;
  sigemptyset(&block);
  sigaddset(&block, SIGTERM);
  sigaddset(&block, SIGINT);
  sigaddset(&block, SIGHUP);
  sigprocmask(SIG_BLOCK, &block, &waitMask);
  sigdelset(&waitMask, SIGTERM);
  sigdelset(&waitMask, SIGINT);
  sigdelset(&waitMask, SIGHUP);
}

enum class LineFault { none, hangUp, vanish };

// The line faults armed once a given reply is out. They strike when the host
// sends again: by then it has read that reply, so where the line dies is the
// same from run to run (a hung-up pty loses what it had not delivered yet).
LineFault lineFaultAfter(const OutgoingReply& r, const FaultPlan& faults) {
  if (faults.hangupAfter != 0 && r.ordinal == faults.hangupAfter) return LineFault::hangUp;
  if (faults.vanishAfter != 0 && r.ordinal == faults.vanishAfter) return LineFault::vanish;
  return LineFault::none;
}

void strike(LineFault fault, PtyLine& line, const Log& log) {
  if (fault == LineFault::hangUp) {
    line.hangUp();
    log.line("hung up: the line is closed, the link stays");
  } else if (fault == LineFault::vanish) {
    line.close();
    log.line("vanished: the line and the link are gone");
  }
}

void sendDue(std::deque<OutgoingReply>& pending, PtyLine& line, const FaultPlan& faults, LineFault& armed,
             const Log& log) {
  while (line.isOpen() && !pending.empty() && pending.front().sendAtUs <= nowUs()) {
    const OutgoingReply& r = pending.front();
    const std::uint32_t hostBaud = line.hostRxBaud();
    if (hostBaud != r.baud) {
      log.line("reply lost: sent at " + std::to_string(r.baud) + " baud, host listens at " + std::to_string(hostBaud));
    } else {
      const std::size_t n = line.write(r.bytes.data(), r.bytes.size());
      log.line("sent " + std::to_string(n) + " of " + std::to_string(r.bytes.size()) + " bytes");
    }
    if (armed == LineFault::none) armed = lineFaultAfter(r, faults);
    pending.pop_front();
  }
}

} // namespace

int main(int argc, char** argv) {
  SimOptions opt;
  int exitCode = 0;
  if (!parseSimOptions(argc, argv, opt, exitCode)) return exitCode;

  sigset_t waitMask;
  installSignals(waitMask);
  // Wake at the reply's moment, not up to the kernel's default 50 us later: the
  // simulator keeps the timing of a real line.
  prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);

  PtyLine line;
  std::string error;
  if (!line.open(opt.link, opt.baud, error)) {
    std::fprintf(stderr, "qmload-sim: %s\n", error.c_str());
    return 1;
  }
  const Log log(opt.verbose);
  SimDevice device(opt.identity, opt.baud, opt.writeMs, opt.faults);
  device.setTiming(opt.eraseMs, opt.latencyMs);
  std::int64_t stallUntilUs = 0; // the device reads nothing before then
  LineFault armed = LineFault::none;
  RequestParser parser;
  std::deque<OutgoingReply> pending;

  std::printf("READY %s\n", line.port().c_str());
  std::fflush(stdout);
  log.line("slave " + line.slavePath() + ", device at " + std::to_string(opt.baud) + " baud");

  std::uint8_t chunk[4096];
  while (!gStop) {
    sendDue(pending, line, opt.faults, armed, log);

    // Wait for input, the next reply's moment, or at most 100 ms. While the device
    // stalls, or after the line is gone, only the clock and the signals are waited on.
    std::int64_t waitUs = 100000;
    if (!pending.empty()) waitUs = std::min(waitUs, std::max<std::int64_t>(0, pending.front().sendAtUs - nowUs()));
    const bool reading = line.isOpen() && nowUs() >= stallUntilUs;
    if (line.isOpen() && !reading) waitUs = std::min(waitUs, stallUntilUs - nowUs());
    struct timespec ts {};
    ts.tv_sec = static_cast<time_t>(waitUs / 1000000);
    ts.tv_nsec = static_cast<long>(waitUs % 1000000) * 1000;
    struct pollfd pfd {};
    pfd.fd = line.masterFd();
    pfd.events = POLLIN;
    const int ready = ppoll(&pfd, reading ? 1 : 0, &ts, &waitMask);
    if (ready <= 0) continue;
    if (!(pfd.revents & POLLIN)) {
      // Never expected while we hold the slave; do not spin if it happens.
      struct timespec pause {
        0, 10 * 1000 * 1000
      };
      nanosleep(&pause, nullptr);
      continue;
    }

    if (armed != LineFault::none) {
      strike(armed, line, log);
      armed = LineFault::none;
      continue;
    }
    const std::size_t n = line.read(chunk, sizeof chunk);
    if (n == 0) continue;
    const std::int64_t arrived = nowUs();
    // The host's speed is read afresh for every chunk: it may reopen at any time.
    const std::uint32_t hostBaud = line.hostTxBaud();
    if (hostBaud != device.currentBaud()) {
      parser.reset();
      log.line(std::to_string(n) + " bytes of noise: host sends at " + std::to_string(hostBaud) +
               " baud, device listens at " + std::to_string(device.currentBaud()));
      continue;
    }
    // A partial request followed by silence of 50 ms (or 20 byte times) is dropped.
    const std::int64_t silenceUs = std::max<std::int64_t>(50000, wireTime(20, hostBaud).count());
    const std::size_t droppedBefore = parser.droppedBytes();
    const auto frames = parser.feed(chunk, n, arrived, silenceUs);
    if (parser.droppedBytes() != droppedBefore)
      log.line("dropped " + std::to_string(parser.droppedBytes() - droppedBefore) + " unframed bytes");
    for (const ParsedFrame& frame : frames) {
      RequestOutcome out = device.onFrame(frame, hostBaud);
      log.line(out.text);
      if (out.forMe && opt.faults.stallAfter != 0 && out.fate.ordinal == opt.faults.stallAfter) {
        stallUntilUs = nowUs() + std::int64_t{opt.faults.stallMs} * 1000;
        log.line("stalled: reading nothing for " + std::to_string(opt.faults.stallMs) + " ms");
      }
      if (out.finished) dumpFlash(opt, device, log);
      if (!out.hasReply) continue;
      // A real device holds only so much; a host that floods it loses replies.
      if (pending.size() >= kMaxPendingReplies) {
        log.line("reply discarded: " + std::to_string(pending.size()) + " replies already waiting");
        continue;
      }
      pending.push_back(std::move(out.reply));
    }
  }

  dumpFlash(opt, device, log);
  line.close();
  log.line("stopped");
  return 0;
}
