#include "device/FlashSequencer.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "device/Frame.h"

namespace {

constexpr std::uint32_t kReplyBytes = 24; // a reply carries no data
constexpr std::uint32_t kShortRequestBytes = 24;
constexpr std::uint32_t kWriteRequestBytes = 280;
// A repeated Start waits 100 ticks, like the other repeated commands.
constexpr std::uint32_t kStartRetryTimeout = 100;
constexpr std::uint32_t kMaxRetries = 6;

const char* const kNotResponding = "Device not response";
const char* const kPortLost = "Port lost: a request could not be written";

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
    send(link, s, CmdStart, 0, nullptr, repeated ? s.offset : s.total,
         policy.timeoutFor(repeated ? kStartRetryTimeout : kStartTimeout, baud, kShortRequestBytes));
    break;
  case NextSegment: break;
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
    send(link, s, CmdFinish, 0, nullptr, 0,
         policy.timeoutFor(repeated ? kFinishRetryTimeout : kFinishTimeout, baud, kShortRequestBytes));
    break;
  }
}

void enter(FlushState& s, FlashLink& link, const FlashPolicy& policy, FlushStep step) {
  s.step = step;
  sendStep(s, link, policy, false);
}

void sendDiscoveryAt(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  link.request(0, 0, 0, CmdIdentify, 0, nullptr, 0,
               policy.timeoutFor(kDiscoveryTimeout, s.lineBaudIndex, kShortRequestBytes));
}

void reopenAt(FlushState& s, FlashLink& link, std::uint32_t baudIndex) {
  link.reopen(static_cast<std::uint8_t>(baudIndex), 0, 0);
  s.lineBaudIndex = baudIndex;
}

} // namespace

FlashPolicy FlashPolicy::gui() { return FlashPolicy{}; }

FlashPolicy FlashPolicy::cli(const std::atomic<bool>* cancel) {
  FlashPolicy p;
  p.zeroCheckIsRefusal = true;
  p.boundedRetries = true;
  p.writeFailureEnds = true;
  p.retryAlternatesBaud = true;
  p.scaleTimeouts = true;
  p.timeoutMarginTicks = 30;
  p.cancel = cancel;
  return p;
}

std::uint32_t FlashPolicy::timeoutFor(std::uint32_t guiTicks, std::uint32_t baudIndex,
                                      std::uint32_t requestBytes) const {
  if (!scaleTimeouts) return guiTicks;
  const std::uint64_t baud = kLadderBauds[baudIndex < 5 ? baudIndex : 0];
  // 10 bits per byte on an 8N1 line; ticks are milliseconds.
  const std::uint64_t wireMs = ((requestBytes + kReplyBytes) * 10ull * 1000ull + baud - 1) / baud;
  const std::uint64_t ticks = 2 * wireMs + timeoutMarginTicks;
  return ticks > guiTicks ? static_cast<std::uint32_t>(ticks) : guiTicks;
}

void sendDiscovery(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  if (policy.fixedBaudIndex >= 0) {
    s.baudIndex = static_cast<std::uint32_t>(policy.fixedBaudIndex);
    reopenAt(s, link, s.baudIndex);
  }
  sendDiscoveryAt(s, link, policy);
}

DiscoveryOutcome stepDiscovery(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  if (policy.cancelled()) return DiscoveryOutcome::Cancelled;
  const bool failed = link.hasFailed();
  // A request that could not be written leaves busy set; the command line counts
  // it as a failed attempt instead of waiting for ever.
  if (link.isBusy() && !(policy.writeFailureEnds && failed)) return DiscoveryOutcome::Waiting;
  if (failed) {
    if (s.discoveryTries > 4) {
      s.discoveryTries = 0;
      if (policy.fixedBaudIndex >= 0) {
        s.notFoundPopup = true;
        return DiscoveryOutcome::NotFound;
      }
      if (s.baudIndex > 3) {
        s.baudIndex = 0;
        s.notFoundPopup = true;
        return DiscoveryOutcome::NotFound;
      }
      s.baudIndex += 1;
    } else {
      s.discoveryTries += 1;
    }
    reopenAt(s, link, s.baudIndex);
    sendDiscoveryAt(s, link, policy);
    return DiscoveryOutcome::Retrying;
  }
  s.discoveryTries = 0;
  s.answeredBaudIndex = s.lineBaudIndex;
  s.baudIndex = 0;
  s.deviceId0 = link.replyWord(0);
  s.deviceId1 = link.replyWord(1);
  s.deviceId2 = link.replyWord(2);
  return DiscoveryOutcome::Found;
}

bool beginFlush(FlushState& s, FlashLink& link, const AelfImage& image, const FlashPolicy& policy) {
  s.image = image;
  s.total = image.segments[0].size + image.segments[1].size + image.segments[2].size;
  s.retries = 0;
  s.offset = s.total;
  s.progress = 0;
  s.blocksAnswered = 0;
  enter(s, link, policy, Start);
  return !(link.isBusy() && link.hasFailed());
}

FlushOutcome stepFlush(FlushState& s, FlashLink& link, const FlashPolicy& policy) {
  FlushOutcome out;
  if (policy.cancelled()) {
    out.kind = FlushKind::Cancelled;
    return out;
  }
  const bool failed = link.hasFailed();
  if (link.isBusy()) {
    if (policy.writeFailureEnds && failed) {
      out.kind = FlushKind::Failed;
      out.message = kPortLost;
    }
    return out; // Waiting
  }
  bool advance = false;
  if (!failed) {
    s.retries = 0;
    switch (s.step) {
    case CheckBlock:
      if (link.replyWord(0) != 0) {
        enter(s, link, policy, WriteBlock);
      } else if (policy.zeroCheckIsRefusal) {
        out.kind = FlushKind::Refused;
        out.address = s.segmentAddress + s.offset;
        return out;
      } else {
        // Nothing is sent: the next call sees the same answer and adds 256 again.
        s.progress += kBlockSize;
      }
      break;
    case Start:
      reopenAt(s, link, kTransferBaudIndex);
      s.segmentIndex = 0;
      s.step = NextSegment;
      advance = true;
      break;
    case WriteBlock:
      s.offset += kBlockSize;
      s.progress += kBlockSize;
      s.blocksAnswered += 1;
      if (s.offset >= s.segmentSize) {
        s.segmentIndex += 1;
        advance = true;
      } else {
        enter(s, link, policy, CheckBlock);
      }
      break;
    case BlockCommand:
      if (s.offset >= s.segmentSize) {
        advance = true;
      } else {
        s.offset += kBlockSize;
        send(link, s, CmdBlock, s.segmentAddress + s.offset, nullptr, kBlockSize,
             policy.timeoutFor(kCommandTimeout, s.lineBaudIndex, kShortRequestBytes));
        s.step = CheckBlock;
      }
      break;
    case NextSegment:
    case SegmentCommand:
    case Finish: advance = true; break;
    }
  } else if (s.retries >= kMaxRetries) {
    if (policy.boundedRetries) {
      out.kind = FlushKind::Failed;
      out.message = kNotResponding;
      return out;
    }
    // Restarts at 1: the request keeps being repeated behind the pop-up.
    s.flushErrorPopup = true;
    s.retries = 1;
    out.kind = FlushKind::PopupRaised;
    return out;
  } else {
    s.retries += 1;
    if ((s.step == Start || s.step == Finish) && policy.retryAlternatesBaud) {
      // The first repetition goes where the device moved if it answered.
      const std::uint32_t moved = s.step == Start ? kTransferBaudIndex : s.answeredBaudIndex;
      const std::uint32_t stayed = s.step == Start ? s.answeredBaudIndex : kTransferBaudIndex;
      const std::uint32_t baud = s.retries % 2 == 1 ? moved : stayed;
      if (baud != s.lineBaudIndex) reopenAt(s, link, baud);
    }
    sendStep(s, link, policy, true);
  }

  out.kind = FlushKind::Progressed;
  if (advance) {
    if (s.step >= SegmentCommand) {
      out.kind = FlushKind::Done;
    } else if (s.segmentIndex > 2) {
      enter(s, link, policy, Finish);
    } else {
      const AelfSegment& seg = s.image.segments[s.segmentIndex];
      s.segmentAddress = seg.address;
      s.segmentSize = seg.size;
      s.segmentData = seg.data;
      s.offset = 0;
      enter(s, link, policy, CheckBlock);
    }
  }
  return out;
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
