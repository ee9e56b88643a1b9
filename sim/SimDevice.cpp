#include "sim/SimDevice.h"

#include "base/Wire.h"
#include "device/Frame.h"

#include <algorithm>
#include <cstdio>

SimDevice::SimDevice(DeviceIdentity identity, std::uint32_t ownBaud, std::uint32_t writeMs, FaultPlan faults)
    : model_(identity, ownBaud), faults_(faults), writeUs_(std::int64_t{writeMs} * 1000) {}

void SimDevice::setTiming(std::uint32_t eraseMs, std::uint32_t latencyMs) {
  eraseUs_ = std::int64_t{eraseMs} * 1000;
  latencyUs_ = std::int64_t{latencyMs} * 1000;
}

namespace {

// An FTDI-style adapter passes on at once only a full USB packet (62 bytes of data);
// less waits for its latency timer.
constexpr std::size_t kAdapterPacket = 62;

std::int64_t wireUs(std::size_t bytes, std::uint32_t baud) { return wireTime(bytes, baud).count(); }

std::string describe(const FrameFields& f, std::size_t n) {
  char line[160];
  std::snprintf(line, sizeof line, "request cmd %u ids %08x-%08x-%08x addr 0x%08x len %u (%zu bytes)",
                static_cast<unsigned>(f.command), f.id0, f.id1, f.id2, f.address, f.length, n);
  return line;
}

} // namespace

RequestOutcome SimDevice::onFrame(const ParsedFrame& frame, std::uint32_t baud) {
  RequestOutcome out;
  const FrameFields req = decodeFields(frame.bytes.data());
  out.text = describe(req, frame.bytes.size());

  if (faults_.silent()) {
    out.ignoredSilent = true;
    out.text += ": ignored, the device is silent";
    return out;
  }
  DeviceAnswer answer = model_.handle(frame.bytes.data(), frame.bytes.size());
  if (!answer.answered) {
    out.text += ": not for this device";
    return out;
  }
  out.forMe = true;
  out.finished = answer.finished;
  if (answer.command == CmdWriteBlock) faults_.countWrite();

  out.fate = faults_.nextReply(answer.reply);
  char tail[120];
  if (out.fate.dropped) {
    std::snprintf(tail, sizeof tail, ": reply #%u dropped", out.fate.ordinal);
    out.text += tail;
    return out;
  }
  // The reply goes out, so the device follows it to its next speed.
  if (answer.nextBaud != 0) model_.applyBaud(answer.nextBaud);

  const std::int64_t received = std::max(frame.firstByteUs + wireUs(frame.bytes.size(), baud), frame.lastByteUs);
  std::int64_t start = std::max(received, freeAtUs_);
  if (answer.command == CmdWriteBlock) start += writeUs_;
  if (answer.command == CmdStart) start += eraseUs_;
  start += std::int64_t{out.fate.extraDelayMs} * 1000;

  out.hasReply = true;
  out.reply.baud = baud;
  out.reply.ordinal = out.fate.ordinal;
  out.reply.bytes = out.fate.garbage;
  out.reply.bytes.insert(out.reply.bytes.end(), answer.reply.begin(), answer.reply.end());
  out.reply.sendAtUs = start + wireUs(out.reply.bytes.size(), baud);
  freeAtUs_ = out.reply.sendAtUs;
  if (latencyUs_ > 0 && out.reply.bytes.size() < kAdapterPacket)
    out.reply.sendAtUs = (out.reply.sendAtUs / latencyUs_ + 1) * latencyUs_;

  const FrameFields rep = decodeFields(answer.reply.data());
  std::snprintf(tail, sizeof tail, ": reply #%u id0 %08x%s%s, %+lld us", out.fate.ordinal, rep.id0,
                out.fate.corrupted ? ", CRC corrupted" : "", out.fate.garbage.empty() ? "" : ", garbage first",
                static_cast<long long>(out.reply.sendAtUs - frame.firstByteUs));
  out.text += tail;
  if (answer.nextBaud != 0) {
    std::snprintf(tail, sizeof tail, "; now at %u baud", answer.nextBaud);
    out.text += tail;
  }
  return out;
}
