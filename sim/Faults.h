#pragma once
// Fault injection on the device's replies.
//
// Every count is an ordinal of the replies the device produces, starting at 1: a
// request gets an ordinal when it has a good CRC, is addressed to this device
// (or is an identify broadcast) and arrives at the device's current baud rate,
// i.e. exactly the requests a healthy device would answer. Zero disables a fault.
#include <cstdint>
#include <vector>

struct FaultPlan {
  std::uint32_t dropReply = 0;    // the Nth reply is not sent
  std::uint32_t dropEvery = 0;    // replies K, 2K, 3K, ... are not sent
  std::uint32_t corruptReply = 0; // the Nth reply goes out with both CRC bytes inverted
  std::uint32_t lateReply = 0;    // the Nth reply leaves lateMs later than it would
  std::uint32_t lateMs = 0;
  std::uint32_t silentAfterWrites = 0; // after N write-block requests, nothing is handled or answered
  std::uint32_t garbageBytes = 0;      // this many garbage bytes go out right before...
  std::uint32_t garbageBefore = 1;     // ...reply number garbageBefore (same write, so they spoil it)
  // Faults of the line itself, counted in replies sent:
  std::uint32_t hangupAfter = 0; // once reply N is out, the pty's device side closes (an unplug)
  std::uint32_t vanishAfter = 0; // once reply N is out, the pty and the link disappear
  std::uint32_t stallAfter = 0;  // once request N is handled, the device stops reading...
  std::uint32_t stallMs = 0;     // ...for this long
};

// What happens to one reply.
struct ReplyFate {
  std::uint32_t ordinal = 0;
  bool dropped = false;
  bool corrupted = false;
  std::uint32_t extraDelayMs = 0;
  std::vector<std::uint8_t> garbage; // bytes sent just before the reply
};

class FaultInjector {
public:
  explicit FaultInjector(FaultPlan plan = {}) : plan_(plan) {}

  // True once the device has gone silent: requests are then ignored entirely.
  bool silent() const { return plan_.silentAfterWrites != 0 && writes_ >= plan_.silentAfterWrites; }

  // Counts a write-block request the device handled.
  void countWrite() { ++writes_; }

  // Decides the fate of the next reply and, when it goes out, applies it to the
  // reply bytes (a corrupted CRC).
  ReplyFate nextReply(std::vector<std::uint8_t>& reply);

private:
  FaultPlan plan_;
  std::uint32_t replies_ = 0;
  std::uint32_t writes_ = 0;
};
