// The simulator's request parser and device model on arbitrary byte streams in
// arbitrary chunks. Every frame the parser hands over must carry a good CRC and a
// request's size; the device must answer with a 24-byte reply frame of good CRC,
// and nothing may ever land in the bootloader or outside the flash.
//
// Input: chunks, each a header byte (low 6 bits: length - 1; high 2 bits: the
// pause before it: none, 100 us, 10 ms, 1 s) and its bytes.
#include "device/Frame.h"
#include "sim/DeviceModel.h"
#include "sim/RequestParser.h"
#include "tests/fuzz/FuzzSupport.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

void fail(const char* what) {
  std::fprintf(stderr, "simulator requests: %s\n", what);
  std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  RequestParser parser;
  DeviceModel device;
  const int64_t silenceUs = 50000;
  int64_t now = 1000000;
  std::size_t at = 0;
  while (at < size) {
    const uint8_t head = data[at++];
    const std::size_t length = std::min<std::size_t>((head & 0x3f) + 1u, size - at);
    static const int64_t pauses[4] = {0, 100, 10000, 1000000};
    now += pauses[head >> 6];
    const auto frames = parser.feed(data + at, length, now, silenceUs);
    at += length;
    if (parser.pending() > kFrameMax + length) fail("parser holds more than a frame beyond the chunk");
    for (const ParsedFrame& frame : frames) {
      const std::size_t n = frame.bytes.size();
      if (n < kFrameHeader + 2 || n > kFrameMax || !frameCrcOk(frame.bytes.data(), n))
        fail("frame of bad size or CRC handed over");
      if (frame.firstByteUs > frame.lastByteUs || frame.lastByteUs > now) fail("frame times out of order");
      const DeviceAnswer answer = device.handle(frame.bytes.data(), n);
      if (!answer.answered) continue;
      if (answer.reply.size() != kFrameHeader + 2 || !frameCrcOk(answer.reply.data(), answer.reply.size()))
        fail("reply of bad size or CRC");
      if (answer.reply[0] != 1) fail("reply frameType is not 1");
      if (answer.nextBaud != 0) device.applyBaud(answer.nextBaud);
    }
  }
  const auto& flash = device.flash();
  if (flash.size() != kFlashSize) fail("flash changed size");
  for (std::size_t i = 0; i < kBootloaderSize; ++i)
    if (flash[i] != 0xFF) fail("bootloader area written");
  return 0;
}
