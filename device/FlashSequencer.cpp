#include "device/FlashSequencer.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <utility>

#include "device/Frame.h"

namespace {

constexpr std::uint32_t kReplyBytes = 24; // a reply carries no data
constexpr std::uint32_t kShortRequestBytes = 24;
constexpr std::uint32_t kWriteRequestBytes = 280;
// A repeated Start waits 100 ticks, like the other repeated commands.
constexpr std::uint32_t kStartRetryTimeout = 100;
// Repetitions of a failed flash request before "Device not response".
constexpr std::uint32_t kMaxRetries = 6;
// Repetitions of the discovery request at one baud rate: six attempts at each.
constexpr std::uint32_t kDiscoveryRepeats = 5;
constexpr std::uint32_t kLastBaudIndex = kLadderBauds.size() - 1;
constexpr std::uint32_t kSegmentCount = sizeof(AelfImage::segments) / sizeof(AelfImage::segments[0]);

const char* const kNotResponding = "Device not response";
const char* const kPortLost = "Port lost";
const char* const kUnwritten = "A request could not be written to the port";

// The 256 bytes of a block. Blocks at the end of a segment run on into the bytes
// that follow it in the image area; past the end of the area they read as 0xFF
// (erased flash) instead of reading outside it.
const std::uint8_t* blockBytes(const std::uint8_t* p, std::uint8_t (&copy)[kBlockSize]) {
  const auto area = reinterpret_cast<std::uintptr_t>(aelfImageArea());
  const auto areaEnd = area + aelfImageAreaSize;
  const auto at = reinterpret_cast<std::uintptr_t>(p);
  if (at < area || at > areaEnd || areaEnd - at >= kBlockSize) return p;
  std::memset(copy, 0xFF, sizeof copy);
  std::memcpy(copy, p, areaEnd - at);
  return copy;
}

void send(FlashLink& link, const FlushState& s, std::uint8_t command, std::uint32_t address, const std::uint8_t* data,
          std::uint32_t length, std::uint32_t timeout) {
  link.request(s.deviceId0, s.deviceId1, s.deviceId2, command, address, data, length, timeout);
}

// Sends the request of `step` as the screen does on entering it, or as it repeats
// it after a failure.
void sendStep(FlushState& s, FlashLink& link, const FlashPolicy& policy, bool repeated) {
  const std::uint32_t baud = s.lineBaudIndex;
  switch (s.step) {
  case CheckBlock:
    send(link, s, CmdCheckBlock, s.segmentAddress + s.offset, nullptr, kBlockSize,
         policy.timeoutFor(kCheckBlockTimeout, baud, kShortRequestBytes));
    break;
  case Start:
    // Repeated, Start sends `offset` as its length: it holds the total until the
    // first segment is loaded.
    send(link, s, CmdStart, 0, nullptr, repeated ? s.offset : s.total,
         std::max(policy.eraseTimeoutTicks,
                  policy.timeoutFor(repeated ? kStartRetryTimeout : kStartTimeout, baud, kShortRequestBytes)));
    break;
  case NextSegment: break; // transient: nothing to repeat
  case WriteBlock: {
    std::uint8_t copy[kBlockSize];
    const std::uint8_t* data = s.segmentData ? blockBytes(s.segmentData + s.offset, copy) : nullptr;
    send(link, s, CmdWriteBlock, s.segmentAddress + s.offset, data, kBlockSize,
         policy.timeoutFor(kWriteBlockTimeout, baud, kWriteRequestBytes));
    break;
  }
  case SegmentCommand:
    send(link, s, CmdSegment, s.segmentAddress, nullptr, s.segmentSize,
         policy.timeoutFor(kCommandTimeout, baud, kShortRequestBytes));
    break;
  case BlockCommand:
    send(link, s, CmdBlock, s.segmentAddress + s.offset, nullptr, kBlockSize,
         policy.timeoutFor(kCommandTimeout, baud, kShortRequestBytes));
    break;
  case Finish:
    // Repeated, Finish waits 100 ticks instead of 500 (the command line keeps 500:
    // a device may take that long to complete its image every time).
    send(link, s, CmdFinish, 0, nullptr, 0,
         policy.timeoutFor(repeated && !policy.patientFinish ? kFinishRetryTimeout : kFinishTimeout, baud,
                           kShortRequestBytes));
    break;
  }
}

void enter(FlushState& s, FlashLink& link, const FlashPolicy& policy, FlushStep step) {
  s.step = step;
  sendStep(s, link, policy, false);
}

void sendDiscoveryAt(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  std::uint32_t timeout = policy.timeoutFor(kDiscoveryTimeout, s.lineBaudIndex, kShortRequestBytes);
  if (s.quickPass) {
    const std::uint32_t baud = kLadderBauds[s.lineBaudIndex < kLadderBauds.size() ? s.lineBaudIndex : 0];
    const auto wire = std::chrono::ceil<std::chrono::milliseconds>(wireTime(kShortRequestBytes + kReplyBytes, baud));
    timeout = static_cast<std::uint32_t>(wire.count()) + policy.quickPassMarginTicks;
  }
  link.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, timeout);
}

void reopenAt(FlushState& s, FlashLink& link, std::uint32_t baudIndex) {
  link.reopen(static_cast<std::uint8_t>(baudIndex), 0, 0);
  s.lineBaudIndex = baudIndex;
}

FlashOutcome outcome(FlashKind kind, std::string message = {}) {
  FlashOutcome out;
  out.kind = kind;
  out.message = std::move(message);
  return out;
}

// A device answered discovery: its identity is kept for every later request.
DiscoveryOutcome takeIdentity(FlushState& s, const FlashLink& link) {
  s.discoveryTries = 0;
  s.quickPass = false;
  s.answeredBaudIndex = s.lineBaudIndex;
  s.baudIndex = 0;
  s.deviceId0 = link.replyWord(0);
  s.deviceId1 = link.replyWord(1);
  s.deviceId2 = link.replyWord(2);
  return DiscoveryOutcome::Found;
}

// No answer: the request again at the same baud rate, or at the next one after six
// attempts, or "Devices are not found" at the end of the ladder.
DiscoveryOutcome retryDiscovery(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  if (s.quickPass) {
    // One attempt at each rate, then the ladder proper from the slowest rate.
    if (s.baudIndex < kLastBaudIndex) {
      s.baudIndex += 1;
    } else {
      s.quickPass = false;
      s.baudIndex = 0;
      s.discoveryTries = 0;
    }
    reopenAt(s, link, s.baudIndex);
    sendDiscoveryAt(s, link, policy);
    return DiscoveryOutcome::Retrying;
  }
  if (s.discoveryTries < kDiscoveryRepeats) {
    s.discoveryTries += 1;
  } else {
    s.discoveryTries = 0;
    if (policy.fixedBaudIndex >= 0) {
      s.notFoundPopup = true;
      return DiscoveryOutcome::NotFound;
    }
    if (s.baudIndex >= kLastBaudIndex) {
      // Deliberate: back to the slowest rate with nothing sent. The next call sees
      // the same failure and starts the ladder over behind the pop-up.
      s.baudIndex = 0;
      s.notFoundPopup = true;
      return DiscoveryOutcome::NotFound;
    }
    s.baudIndex += 1;
  }
  reopenAt(s, link, s.baudIndex);
  sendDiscoveryAt(s, link, policy);
  return DiscoveryOutcome::Retrying;
}

FlashOutcome checkBlockAnswered(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  if (link.replyWord(0) != 0) {
    enter(s, link, policy, WriteBlock);
  } else if (policy.zeroCheckIsRefusal) {
    FlashOutcome out = outcome(FlashKind::Refused);
    out.address = s.segmentAddress + s.offset;
    return out;
  } else {
    // Deliberate: nothing is sent, so every later call sees the same answer and adds
    // 256 again while the flash makes no progress.
    s.progress += kBlockSize;
  }
  return outcome(FlashKind::Progressed);
}

void startAnswered(FlushState& s, FlashLink& link) {
  reopenAt(s, link, kTransferBaudIndex);
  s.segmentIndex = 0;
  s.step = NextSegment;
}

// True when the segment is done.
bool writeBlockAnswered(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  s.offset += kBlockSize;
  s.progress += kBlockSize;
  if (s.offset >= s.segmentSize) {
    s.segmentIndex += 1;
    return true;
  }
  enter(s, link, policy, CheckBlock);
  return false;
}

// Never entered by the sequence; kept as the screen has it. True when the segment is done.
bool blockCommandAnswered(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  if (s.offset >= s.segmentSize) return true;
  // Deliberate: command 7 goes out for the next block, and the step becomes
  // CheckBlock without a check being sent.
  s.offset += kBlockSize;
  send(link, s, CmdBlock, s.segmentAddress + s.offset, nullptr, kBlockSize,
       policy.timeoutFor(kCommandTimeout, s.lineBaudIndex, kShortRequestBytes));
  s.step = CheckBlock;
  return false;
}

// The step is over: the next segment's first check, Finish after the last segment,
// or the end of the flash.
FlashOutcome advance(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  // Finish and the two steps the sequence never enters all end the flash.
  if (s.step >= SegmentCommand) return outcome(FlashKind::Done);
  if (s.segmentIndex >= kSegmentCount) {
    enter(s, link, policy, Finish);
  } else {
    const AelfSegment& seg = s.image.segments[s.segmentIndex];
    s.segmentAddress = seg.address;
    s.segmentSize = seg.size;
    s.segmentData = seg.data;
    s.offset = 0;
    enter(s, link, policy, CheckBlock);
  }
  return outcome(FlashKind::Progressed);
}

// The awaited request failed: it is sent again, up to six times in a row.
FlashOutcome repeatFailed(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  if (s.retries >= kMaxRetries) {
    if (policy.boundedRetries) return outcome(FlashKind::Failed, kNotResponding);
    // Deliberate: retries restart at 1, not 0, so behind the pop-up the request is
    // repeated five times at a time for as long as it stays open.
    s.flushErrorPopup = true;
    s.retries = 1;
    return outcome(FlashKind::PopupRaised);
  }
  s.retries += 1;
  if ((s.step == Start || s.step == Finish) && policy.retryAlternatesBaud) {
    // The first repetition goes where the device moved if it answered.
    const std::uint32_t moved = s.step == Start ? kTransferBaudIndex : s.answeredBaudIndex;
    const std::uint32_t stayed = s.step == Start ? s.answeredBaudIndex : kTransferBaudIndex;
    const std::uint32_t baud = s.retries % 2 == 1 ? moved : stayed;
    if (baud != s.lineBaudIndex) reopenAt(s, link, baud);
  }
  sendStep(s, link, policy, true);
  return outcome(FlashKind::Progressed);
}

} // namespace

FlashPolicy FlashPolicy::gui() { return FlashPolicy{}; }

FlashPolicy FlashPolicy::cli(const std::atomic<bool>* cancel) {
  FlashPolicy p;
  p.zeroCheckIsRefusal = true;
  p.boundedRetries = true;
  p.writeFailureEnds = true;
  p.lostLineEnds = true;
  p.patientFinish = true;
  p.retryAlternatesBaud = true;
  p.scaleTimeouts = true;
  p.timeoutMarginTicks = 30;
  p.eraseTimeoutTicks = kDefaultEraseSeconds * 1000; // ticks are milliseconds
  p.cancel = cancel;
  return p;
}

std::uint32_t FlashPolicy::timeoutFor(std::uint32_t guiTicks, std::uint32_t baudIndex,
                                      std::uint32_t requestBytes) const {
  if (!scaleTimeouts) return guiTicks;
  const std::uint32_t baud = kLadderBauds[baudIndex < kLadderBauds.size() ? baudIndex : 0];
  // Ticks are milliseconds.
  const auto wire = std::chrono::ceil<std::chrono::milliseconds>(wireTime(requestBytes + kReplyBytes, baud));
  const std::uint64_t ticks = 2 * static_cast<std::uint64_t>(wire.count()) + timeoutMarginTicks;
  return ticks > guiTicks ? static_cast<std::uint32_t>(ticks) : guiTicks;
}

void sendDiscovery(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  if (policy.fixedBaudIndex >= 0) {
    s.baudIndex = static_cast<std::uint32_t>(policy.fixedBaudIndex);
    reopenAt(s, link, s.baudIndex);
  }
  s.quickPass = policy.quickPassMarginTicks != 0 && policy.fixedBaudIndex < 0;
  sendDiscoveryAt(s, link, policy);
}

DiscoveryOutcome stepDiscovery(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  if (policy.cancelled()) return DiscoveryOutcome::Cancelled;
  link.update();
  // Busy first: once a request is seen over, its failed flag is final. A request
  // that could not be written leaves busy set too; it counts as a failed attempt,
  // so a port that cannot be opened runs out into "Devices are not found".
  const bool unwritten = link.requestUnwritten();
  const bool busy = link.isBusy();
  const bool failed = link.hasFailed();
  if (busy && !unwritten) return DiscoveryOutcome::Waiting;
  if (!failed && !unwritten) return takeIdentity(s, link);
  if (policy.lostLineEnds && link.lineLost()) return DiscoveryOutcome::Lost;
  return retryDiscovery(s, link, policy);
}

bool beginFlash(FlushState& s, FlashLink& link, const AelfImage& image, const FlashPolicy& policy) {
  s.image = image;
  s.total = image.segments[0].size + image.segments[1].size + image.segments[2].size;
  s.retries = 0;
  s.offset = s.total;
  s.progress = 0;
  enter(s, link, policy, Start);
  return !(link.isBusy() && link.hasFailed());
}

FlashOutcome stepFlash(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  if (policy.cancelled()) return outcome(FlashKind::Cancelled);
  link.update();
  // Busy first: once a request is seen over, its failed flag is final. A request
  // that could not be written (busy and failed both set) is a failed request.
  const bool unwritten = link.requestUnwritten();
  const bool busy = link.isBusy();
  const bool failed = link.hasFailed();
  if (busy && !unwritten) return outcome(FlashKind::Waiting);
  // An answer that came before the line was lost still counts (a hang-up right
  // after the answer to Finish leaves a complete flash).
  if ((failed || unwritten) && policy.lostLineEnds && link.lineLost()) return outcome(FlashKind::Failed, kPortLost);
  if (unwritten && policy.writeFailureEnds) return outcome(FlashKind::Failed, kUnwritten);
  if (failed || unwritten) return repeatFailed(s, link, policy);

  s.retries = 0;
  switch (s.step) {
  case CheckBlock: return checkBlockAnswered(s, link, policy);
  case Start: startAnswered(s, link); break;
  case WriteBlock:
    if (!writeBlockAnswered(s, link, policy)) return outcome(FlashKind::Progressed);
    break;
  case BlockCommand:
    if (!blockCommandAnswered(s, link, policy)) return outcome(FlashKind::Progressed);
    break;
  case NextSegment:
  case SegmentCommand:
  case Finish: break;
  }
  return advance(s, link, policy);
}

const char* spinnerText(std::int32_t spinner) {
  static const char* const frames[8] = {
      "[ / ] .",     "[ | ] ..",     "[ \\ ] ...",     "[ - ] ....",
      "[ / ] .....", "[ | ] ......", "[ \\ ] .......", "[ - ] ........",
  };
  int index = spinner % 8;
  if (index < 0) index += 8;
  return frames[index];
}
