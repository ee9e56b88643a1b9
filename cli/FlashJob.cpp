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

// Wakes the job's thread when a phase has ended, or after a short while: a CRC error
// ends a request without a signal, and the cancel flag is only seen by looking.
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

// Steps the sequence wherever an outcome turns up. Mostly on the session's worker,
// right after it publishes a reply or a time-out: the next request then leaves from
// that thread at once, with no hand-over to another one. The job's thread steps too,
// every few milliseconds, for what the worker does not announce (a CRC error, the
// cancel flag). One lock keeps the two apart.
class Stepper {
public:
  enum class Phase { idle, discovery, flash, ended };

  Stepper(FlushState& state, FlashLink& link, const FlashPolicy& policy, Waiter& waiter)
      : s_(state), link_(link), policy_(policy), waiter_(waiter) {}

  // Starts a phase with its first request (sent under the lock, so that the worker
  // cannot step the phase before it has begun).
  template <typename Send>
  void begin(Phase phase, Send send) {
    std::lock_guard<std::mutex> lock(mutex_);
    phase_ = phase;
    send();
    stepLocked();
  }
  // Called by the session's worker, and by the job's thread after each wait.
  void step() {
    std::lock_guard<std::mutex> lock(mutex_);
    stepLocked();
  }
  bool ended() {
    std::lock_guard<std::mutex> lock(mutex_);
    return phase_ == Phase::ended;
  }
  std::uint32_t progress() {
    std::lock_guard<std::mutex> lock(mutex_);
    return s_.progress < s_.total ? s_.progress : s_.total;
  }
  // Read once the phase has ended.
  DiscoveryOutcome discovered() const { return discovered_; }
  const FlashOutcome& flashed() const { return flashed_; }
  Clock::time_point endedAt() const { return endedAt_; }

private:
  // Runs the phase's steps until one waits for the line or ends the phase.
  void stepLocked() {
    for (;;) {
      if (phase_ == Phase::discovery) {
        const DiscoveryOutcome o = stepDiscovery(s_, link_, policy_);
        if (o == DiscoveryOutcome::Waiting) return;
        if (o == DiscoveryOutcome::Retrying) continue;
        discovered_ = o;
      } else if (phase_ == Phase::flash) {
        FlashOutcome o = stepFlash(s_, link_, policy_);
        if (o.kind == FlashKind::Waiting) return;
        if (o.kind == FlashKind::Progressed) continue;
        flashed_ = std::move(o);
      } else {
        return;
      }
      endedAt_ = Clock::now();
      phase_ = Phase::ended;
      waiter_.signal();
      return;
    }
  }

  std::mutex mutex_;
  FlushState& s_;
  FlashLink& link_;
  const FlashPolicy& policy_;
  Waiter& waiter_;
  Phase phase_ = Phase::idle;
  DiscoveryOutcome discovered_ = DiscoveryOutcome::Waiting;
  FlashOutcome flashed_;
  Clock::time_point endedAt_{};
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
  // The command line polls as soon as the port is open: nothing here waits for a
  // screen to come up.
  auto session = std::make_unique<DeviceSession>(job.port.c_str(), DeviceSession::FirstPoll::atOnce);
  if (!session->isOpen()) {
    result.message = "Cannot open port " + job.port;
    return result;
  }
  session->setFraming(job.framing);
  CheckedLink link(*session);

  FlashPolicy policy = FlashPolicy::cli(job.cancel);
  policy.fixedBaudIndex = job.baudIndex;
  policy.eraseTimeoutTicks = job.eraseTimeoutMs;
  // A remote port (rfc2217://) puts a network between request and reply. Each
  // time-out's margin grows by twice the round trip measured at connect: one for
  // the crossing itself, one for a loaded network's jitter. 0 for a local port.
  const std::uint32_t networkTicks = 2 * ((session->roundTripMicros() + 999) / 1000);
  policy.timeoutMarginTicks += networkTicks;
  // Discovery first tries each rate once; the margin covers a USB adapter's latency
  // timer (16 ms by default) on top of the wire time.
  policy.quickPassMarginTicks = 20 + networkTicks;
  FlushState s;
  Stepper stepper(s, link, policy, waiter);
  session->setWakeCallback([&stepper] { stepper.step(); });

  auto finish = [&](JobResult r) {
    r.strayReplies = link.strayReplies();
    // A step the worker has begun ends before the session is gone (the destructor
    // joins the worker); the stepper outlives both.
    session->setWakeCallback(nullptr);
    session.reset();
    return r;
  };
  // Waits for the phase to end on the job's thread, stepping it now and then and
  // reporting the flash's progress as it grows.
  auto waitPhase = [&](bool reportProgress) {
    std::uint32_t reported = 0;
    while (!stepper.ended()) {
      waiter.wait();
      stepper.step();
      if (!reportProgress) continue;
      const std::uint32_t done = stepper.progress();
      if (done != reported) reporter.progress(job.port, done, s.total);
      reported = done;
    }
  };

  if (job.haveId && job.baudIndex >= 0) {
    // Addressed directly: no broadcast on the line.
    if (job.baudIndex != 0) link.reopen(static_cast<std::uint8_t>(job.baudIndex), 0, 0);
    s.lineBaudIndex = s.answeredBaudIndex = static_cast<std::uint32_t>(job.baudIndex);
  } else {
    stepper.begin(Stepper::Phase::discovery, [&] { sendDiscovery(s, link, policy); });
    waitPhase(false);
    switch (stepper.discovered()) {
    case DiscoveryOutcome::Found: break;
    case DiscoveryOutcome::Cancelled:
      result.exitCode = ExitInterrupted;
      result.message = "Cancelled";
      return finish(result);
    case DiscoveryOutcome::Lost: result.message = "Port lost"; return finish(result);
    default: result.message = "Devices are not found"; return finish(result);
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
  stepper.begin(Stepper::Phase::flash, [&] { beginFlash(s, link, *job.image, policy); });
  reporter.erasing(job.port);
  waitPhase(true);
  const FlashOutcome& o = stepper.flashed();
  switch (o.kind) {
  case FlashKind::Done:
    result.exitCode = ExitOk;
    result.seconds = std::chrono::duration<double>(stepper.endedAt() - started).count();
    result.bytes = s.total;
    reporter.progress(job.port, s.total, s.total);
    return finish(result);
  case FlashKind::Refused: result.message = refusalText(o.address); return finish(result);
  case FlashKind::Cancelled:
    result.exitCode = ExitInterrupted;
    result.message = "Cancelled";
    return finish(result);
  case FlashKind::Failed: result.message = o.message; return finish(result);
  default: // PopupRaised: not with the command line's policy
    result.message = "Device not response";
    return finish(result);
  }
}
