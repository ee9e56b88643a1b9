#include "sim/DeviceModel.h"

#include "base/Wire.h"
#include "device/Frame.h"

#include <algorithm>

namespace {

constexpr std::uint64_t kWritableBegin = std::uint64_t{kFlashBase} + kBootloaderSize;
constexpr std::uint64_t kWritableEnd = std::uint64_t{kFlashBase} + kFlashSize;

bool knownCommand(std::uint8_t command) {
  switch (command) {
  case CmdIdentify:
  case CmdCheckBlock:
  case CmdStart:
  case CmdBlock:
  case CmdSegment:
  case CmdWriteBlock:
  case CmdFinish: return true;
  default: return false;
  }
}

} // namespace

DeviceModel::DeviceModel(DeviceIdentity identity, std::uint32_t ownBaud)
    : identity_(identity), ownBaud_(ownBaud), currentBaud_(ownBaud), flash_(kFlashSize, 0xFF) {}

bool DeviceModel::writable(std::uint32_t address, std::uint32_t size) {
  const std::uint64_t begin = address;
  const std::uint64_t end = begin + size;
  return begin >= kWritableBegin && end <= kWritableEnd;
}

void DeviceModel::eraseWritable() { std::fill(flash_.begin() + kBootloaderSize, flash_.end(), 0xFF); }

void DeviceModel::writeBlock(std::uint32_t address, const std::uint8_t* data, std::uint32_t size) {
  // Bytes outside the writable area are skipped; the rest land as sent.
  for (std::uint32_t i = 0; i < size; ++i) {
    const std::uint64_t at = std::uint64_t{address} + i;
    if (at < kWritableBegin || at >= kWritableEnd) continue;
    flash_[static_cast<std::size_t>(at - kFlashBase)] = data[i];
  }
}

DeviceAnswer DeviceModel::handle(const std::uint8_t* frame, std::size_t n) {
  DeviceAnswer answer;
  if (n < kFrameHeader + 2 || n > kFrameMax || !frameCrcOk(frame, n)) return answer;
  const FrameFields req = decodeFields(frame);
  if (req.frameType != 0 || !knownCommand(req.command)) return answer;

  const bool toMe = req.id0 == identity_.id0 && req.id1 == identity_.id1 && req.id2 == identity_.id2;
  const bool broadcast = req.id0 == 0 && req.id1 == 0 && req.id2 == 0;
  if (!toMe && !(broadcast && req.command == CmdIdentify)) return answer;

  FrameFields rep;
  rep.frameType = 1;
  rep.id0 = identity_.id0;
  rep.id1 = identity_.id1;
  rep.id2 = identity_.id2;
  rep.command = req.command;
  rep.address = req.address;
  rep.length = req.length;

  const std::size_t dataBytes = n - kFrameHeader - 2;
  switch (req.command) {
  case CmdCheckBlock: rep.id0 = writable(req.address, kBlockSize) ? 1 : 0; break;
  case CmdStart:
    eraseWritable();
    answer.nextBaud = kTransferBaud;
    break;
  case CmdWriteBlock: {
    const std::uint32_t size = static_cast<std::uint32_t>(std::min<std::size_t>(dataBytes, req.length));
    writeBlock(req.address, frame + kOffData, size);
    break;
  }
  case CmdFinish:
    answer.finished = true;
    answer.nextBaud = ownBaud_;
    break;
  default: // identify, block and segment commands are only acknowledged
    break;
  }

  answer.answered = true;
  answer.command = req.command;
  answer.reply.resize(kFrameMax);
  answer.reply.resize(encodeFrame(answer.reply.data(), rep, nullptr));
  return answer;
}
