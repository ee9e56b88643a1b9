// The simulator's request parser and device model. Input: chunks, each a header byte
// (low 6 bits: length - 1; high 2: the pause before it, see `pauses`) and its bytes.
#include "device/Frame.h"
#include "sim/DeviceModel.h"
#include "sim/RequestParser.h"
#include "tests/fuzz/FuzzSupport.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  RequestParser parser;
  DeviceModel device;
  static const int64_t pauses[4] = {0, 100, 10000, 1000000};
  int64_t now = 1000000;
  for (std::size_t at = 0; at < size;) {
    const uint8_t head = data[at++];
    const std::size_t length = std::min<std::size_t>((head & 0x3f) + 1u, size - at);
    now += pauses[head >> 6];
    const auto frames = parser.feed(data + at, length, now, 50000);
    at += length;
    fuzzCheck(parser.pending() <= kFrameMax + length, "parser holds more than a frame beyond the chunk");
    for (const ParsedFrame& frame : frames) {
      const std::size_t n = frame.bytes.size();
      fuzzCheck(n >= kFrameHeader + 2 && n <= kFrameMax && frameCrcOk(frame.bytes.data(), n) &&
                    frame.firstByteUs <= frame.lastByteUs && frame.lastByteUs <= now,
                "frame of bad size, CRC or times handed over");
      const DeviceAnswer answer = device.handle(frame.bytes.data(), n);
      if (!answer.answered) continue;
      fuzzCheck(answer.reply.size() == kFrameHeader + 2 && answer.reply[0] == 1 &&
                    frameCrcOk(answer.reply.data(), answer.reply.size()),
                "reply of bad size, CRC or frame type");
      if (answer.nextBaud != 0) device.applyBaud(answer.nextBaud);
    }
  }
  const auto& flash = device.flash();
  fuzzCheck(flash.size() == kFlashSize &&
                std::all_of(flash.begin(), flash.begin() + kBootloaderSize, [](uint8_t b) { return b == 0xFF; }),
            "flash resized or bootloader area written");
  return 0;
}
