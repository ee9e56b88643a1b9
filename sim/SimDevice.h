#pragma once
// The device on its line: the model, the faults and the wire timing together.
//
// Timing follows a real line, with a byte taking 10 bit times at the baud rate:
// a request counts as received when its last byte would have arrived (first
// byte's arrival plus its wire time, or later if the bytes really came later);
// the device then spends its processing time (the write time for a write-block,
// nothing for the other commands) and any injected delay; the reply, with any
// injected garbage in front, then takes its own wire time, and is handed to the
// line in one piece at the moment its last byte would have arrived. The device
// handles one request at a time, so a request that arrives while a reply is
// still on its way waits for it.
#include "sim/DeviceModel.h"
#include "sim/Faults.h"
#include "sim/RequestParser.h"

#include <cstdint>
#include <string>
#include <vector>

// A reply waiting for its moment on the wire.
struct OutgoingReply {
  std::vector<std::uint8_t> bytes; // garbage (if any) followed by the reply frame
  std::int64_t sendAtUs = 0;
  std::uint32_t ordinal = 0; // the reply's ordinal (Faults.h)
  std::uint32_t baud = 0;    // the speed it goes out at; lost if the host listens at another
};

// What became of one request frame, for the caller and its log.
struct RequestOutcome {
  bool forMe = false;         // addressed to this device and not ignored
  bool ignoredSilent = false; // the device has fallen silent
  bool finished = false;      // a finish was handled: time to write the flash out
  bool hasReply = false;      // reply holds something to send
  OutgoingReply reply;
  ReplyFate fate;
  std::string text; // one log line describing the request and what happened
};

class SimDevice {
public:
  SimDevice(DeviceIdentity identity, std::uint32_t ownBaud, std::uint32_t writeMs, FaultPlan faults);
  // An erase that makes the answer to start late, and a USB adapter whose latency
  // timer holds a short reply until its next tick (a free-running timer).
  void setTiming(std::uint32_t eraseMs, std::uint32_t latencyMs);

  // A complete request frame from the parser, taken while the line ran at baud.
  RequestOutcome onFrame(const ParsedFrame& frame, std::uint32_t baud);

  DeviceModel& model() { return model_; }
  std::uint32_t currentBaud() const { return model_.currentBaud(); }

private:
  DeviceModel model_;
  FaultInjector faults_;
  std::int64_t writeUs_;
  std::int64_t eraseUs_ = 0;
  std::int64_t latencyUs_ = 0;
  std::int64_t freeAtUs_ = 0; // the device is busy with earlier work until then
};
