#include "sim/Faults.h"

ReplyFate FaultInjector::nextReply(std::vector<std::uint8_t>& reply) {
  ReplyFate fate;
  fate.ordinal = ++replies_;
  const std::uint32_t n = fate.ordinal;

  fate.dropped = (plan_.dropReply != 0 && n == plan_.dropReply) || (plan_.dropEvery != 0 && n % plan_.dropEvery == 0);
  if (fate.dropped) return fate;

  if (plan_.corruptReply != 0 && n == plan_.corruptReply && reply.size() >= 2) {
    reply[reply.size() - 2] ^= 0xFF;
    reply[reply.size() - 1] ^= 0xFF;
    fate.corrupted = true;
  }
  if (plan_.lateReply != 0 && n == plan_.lateReply) fate.extraDelayMs = plan_.lateMs;
  if (plan_.garbageBytes != 0 && n == plan_.garbageBefore) {
    // A fixed, non-zero pattern: a line glitch, reproducible from run to run.
    std::uint32_t state = 0x2545F491u;
    fate.garbage.reserve(plan_.garbageBytes);
    for (std::uint32_t i = 0; i < plan_.garbageBytes; ++i) {
      state = state * 1664525u + 1013904223u;
      fate.garbage.push_back(static_cast<std::uint8_t>((state >> 24) | 0x01));
    }
  }
  return fate;
}
