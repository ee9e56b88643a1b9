#include "cli/FlashJob.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>

#include "device/CheckedLink.h"
#include "device/FlashSequencer.h"

namespace {

using Clock = std::chrono::steady_clock;

// Sleeps until the session's worker signals (a reply, a time-out, or every 10 ticks
// of a running time-out) or a short while has passed: a CRC error ends a request
// without a signal, and the cancel flag is only seen by looking.
class Waiter {
public:
  void signal() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      signalled_ = true;
    }
    cv_.notify_one();
  }
  void wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    cv_.wait_for(lock, std::chrono::milliseconds(5), [this] { return signalled_; });
    signalled_ = false;
  }

private:
  std::mutex mutex_;
  std::condition_variable cv_;
  bool signalled_ = false;
};

std::string refusalText(std::uint32_t address) {
  char text[80];
  std::snprintf(text, sizeof text, "Block at 0x%08x refused by the device", static_cast<unsigned>(address));
  return text;
}

} // namespace

JobResult runDeviceJob(const DeviceJob& job, JobReporter& reporter) {
  JobResult result;
  Waiter waiter; // outlives the session, whose worker calls it
  auto session = std::make_unique<DeviceSession>(job.port.c_str());
  if (!session->isOpen()) {
    result.message = "Cannot open port " + job.port;
    return result;
  }
  session->setFraming(job.framing);
  session->setWakeCallback([&waiter] { waiter.signal(); });
  CheckedLink link(*session);

  FlashPolicy policy = FlashPolicy::cli(job.cancel);
  policy.fixedBaudIndex = job.baudIndex;
  policy.eraseTimeoutTicks = job.eraseTimeoutMs;
  // A remote port (rfc2217://) puts a network between request and reply. Each
  // time-out's margin grows by twice the round trip measured at connect: one for
  // the crossing itself, one for a loaded network's jitter. 0 for a local port.
  policy.timeoutMarginTicks += 2 * ((session->roundTripMicros() + 999) / 1000);
  FlushState s;

  auto finish = [&](JobResult r) {
    r.strayReplies = link.strayReplies();
    session->setWakeCallback(nullptr);
    session.reset();
    return r;
  };

  if (job.haveId && job.baudIndex >= 0) {
    // Addressed directly: no broadcast on the line.
    if (job.baudIndex != 0) link.reopen(static_cast<std::uint8_t>(job.baudIndex), 0, 0);
    s.lineBaudIndex = s.answeredBaudIndex = static_cast<std::uint32_t>(job.baudIndex);
  } else {
    sendDiscovery(s, link, policy);
    for (;;) {
      const DiscoveryOutcome o = stepDiscovery(s, link, policy);
      if (o == DiscoveryOutcome::Found) break;
      if (o == DiscoveryOutcome::Cancelled) {
        result.exitCode = ExitInterrupted;
        result.message = "Cancelled";
        return finish(result);
      }
      if (o == DiscoveryOutcome::NotFound) {
        result.message = "Devices are not found";
        return finish(result);
      }
      if (o == DiscoveryOutcome::Lost) {
        result.message = "Port lost";
        return finish(result);
      }
      if (o == DiscoveryOutcome::Waiting) waiter.wait();
    }
  }
  if (job.haveId) {
    s.deviceId0 = job.id[0];
    s.deviceId1 = job.id[1];
    s.deviceId2 = job.id[2];
  }
  result.identity = formatIdentity(s.deviceId0, s.deviceId1, s.deviceId2);
  result.baud = kLadderBauds[s.answeredBaudIndex];
  reporter.found(job.port, result.identity, result.baud);
  if (!job.image) {
    result.exitCode = ExitOk;
    return finish(result);
  }

  const auto started = Clock::now();
  beginFlash(s, link, *job.image, policy);
  reporter.erasing(job.port);
  for (;;) {
    const FlashOutcome o = stepFlash(s, link, policy);
    switch (o.kind) {
    case FlashKind::Waiting: waiter.wait(); continue;
    case FlashKind::Progressed:
      reporter.progress(job.port, s.progress < s.total ? s.progress : s.total, s.total);
      continue;
    case FlashKind::Done:
      result.exitCode = ExitOk;
      result.seconds = std::chrono::duration<double>(Clock::now() - started).count();
      result.bytes = s.total;
      reporter.progress(job.port, s.total, s.total);
      return finish(result);
    case FlashKind::Refused: result.message = refusalText(o.address); return finish(result);
    case FlashKind::Failed: result.message = o.message; return finish(result);
    case FlashKind::Cancelled:
      result.exitCode = ExitInterrupted;
      result.message = "Cancelled";
      return finish(result);
    case FlashKind::PopupRaised: // not with the command line's policy
      result.message = "Device not response";
      return finish(result);
    }
  }
}
